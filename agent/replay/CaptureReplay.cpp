#include <Replay/CaptureReplay.h>

#include <stdlib.h>

#include <algorithm>
#include <utility>

#include <Events/IntakeEvents.h>
#include <Events/LibraryMessages.h>
#include <Events/StatusWatcher.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <GmpIgmpQuerierSm/QueryOutput.h>
#include <Ilvo/IgmpHdr.h>
#include <Ilvo/Pkt.h>
#include <Intake/Intake.h>
#include <Mox/ActivityClock.h>
#include <Obel/TimerWheel.h>
#include <Text/WallClock.h>

namespace Agent {

using Gmp::Igmp::PublishedQuery;
using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierSm;
using Gmp::Igmp::QuerierStatus;
using Mox::Ptr;
using Mox::Seconds;

namespace {

constexpr Mox::U32 ethernetMtu = 1500;

}  // namespace

// The querier with its timers and watchers; it begins at the time that the clock shows.
class CaptureReplay::Querier final : private IntakeWatcher {
 public:
  explicit Querier(CaptureReplay& replay)
      : replay_(replay),
        messages_(replay.sink_),
        watcher_(replay.config_->name().string(), status_, replay.sink_),
        queries_([&sink = replay.sink_,
                  interface = replay.config_->name().string()](const PublishedQuery& query) {
          sink.event(querySentEvent(interface, query.dstGroup, query.message));
        }),
        querier_(Gmp::Igmp::querierSmFactory(replay.config_, status_, replay.options_.address,
                                             ethernetMtu, 0, wheel_, wheel_, wheel_, false,
                                             &queries_)) {
    querier_->mcastBoundaryIntfStatusIs(replay.boundary_);
    if (replay.options_.intake) makeIntake();
    watcher_.flush();
  }

  // At each expiry the clock stands at its due time.
  void advanceTo(Seconds time) {
    while (wheel_->nextDue() <= time) {
      turn(std::max(Mox::now(), wheel_->nextDue()));
    }
    turn(time);
  }

  void receive(const CaptureContent& content) {
    IntakeVerdict verdict{.packet = content.ipv4};
    if (intake_) verdict = intake_->judge({.packet = content.ipv4, .macs = content.macs});
    if (verdict.rule) report(verdict, content);
    if (!verdict.isRefused) querier_->doRxPkt(Mox::makePtr<Ilvo::Pkt>(verdict.packet));
    // Nothing else waits for the rest of a report, so it follows at once.
    const std::vector<Mox::U8> rest(verdict.rest.begin(), verdict.rest.end());
    if (!rest.empty()) {
      receive({.ipv4 = rest, .skipped = {}, .macs = content.macs});
      return;
    }
    watcher_.flush();
  }

  const Ptr<QuerierStatus>& status() const { return status_; }
  const Ptr<IntakeStatus>& intakeStatus() const { return intakeStatus_; }

 private:
  void makeIntake() {
    process_.emplace(IntakeProcess{.config = replay_.options_.process});
    intakeStatus_ = Mox::makePtr<IntakeStatus>(replay_.config_->name());
    IntakeWatcher& watcher = *this;
    intake_.emplace(*process_, replay_.options_.intake, intakeStatus_, status_, watcher);
    intake_->querierIs(querier_);
    intake_->linkIs({}, replay_.options_.subnets);
  }

  // Each packet, not only the first of a minute.
  void report(const IntakeVerdict& verdict, const CaptureContent& content) {
    ++(verdict.isRefused ? replay_.summary_.refused : replay_.summary_.changed);
    const auto view = PacketView::of({.packet = content.ipv4, .macs = content.macs});
    const bool namesGroup = view->isRight() && view->type() != Ilvo::igmpV3Report;
    const std::span<const Mox::U8> mac =
        view->hasMacs() ? view->sourceMac() : std::span<const Mox::U8>();
    replay_.sink_.event(intakeEvent(replay_.config_->name().string(),
                                    {.rule = *verdict.rule,
                                     .sender = view->ip().src(),
                                     .mac = mac,
                                     .group = namesGroup ? view->group() : Ilvo::IpAddr(),
                                     .count = intakeStatus_->counted(*verdict.rule)}));
  }
  void onIntakeEvent(const IntakeEvent& event) override {
    if (!nameOf(event.rule).isWarning) return;
    replay_.sink_.event(intakeEvent(replay_.config_->name().string(), event));
  }

  void turn(Seconds time) {
    Mox::virtualTimeIs(time);
    wheel_->turn(time);
    watcher_.flush();
  }

  CaptureReplay& replay_;
  const Ptr<Obel::TimerWheel> wheel_ = Mox::makePtr<Obel::TimerWheel>(Mox::now());
  const Ptr<QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  const LibraryMessages messages_;
  StatusWatcher watcher_;
  Gmp::Igmp::QueryOutput queries_;
  const Ptr<QuerierSm> querier_;
  std::optional<IntakeProcess> process_;
  Ptr<IntakeStatus> intakeStatus_;
  std::optional<Intake> intake_;  // none where no rules are applied
};

Mox::U64 ReplaySummary::skippedInAll() const {
  Mox::U64 sum = 0;
  for (const auto& [reason, count] : skipped) sum += count;
  return sum;
}

CaptureReplay::CaptureReplay(const ReplayOptions& options, Ptr<const QuerierConfig> config,
                             Ptr<const Ilvo::IntfBoundaryStatus> boundary, EventSink& sink)
    : options_(options), config_(std::move(config)), boundary_(std::move(boundary)), sink_(sink) {}

CaptureReplay::~CaptureReplay() = default;

void CaptureReplay::run(CaptureFile& file) {
  Mox::virtualTimeIs(start_);  // holds where the capture has no frame
  wallClockDifferenceIs(0.0);
  while (const std::optional<CaptureFile::Frame> frame = file.next()) handIn(*frame);
  summary_.damage = file.damage();
  if (querier_) querier_->advanceTo(Mox::now() + options_.until);
}

void CaptureReplay::handIn(const CaptureFile::Frame& frame) {
  if (!querier_) {
    srand48(static_cast<long>(options_.seed));
    start_ = lastStamp_ = frame.time;
    Mox::virtualTimeIs(frame.time);
    querier_ = std::make_unique<Querier>(*this);
  }
  querier_->advanceTo(timeOf(frame));
  wallClockDifferenceIs(shift_);
  ++summary_.frames;
  if (frame.content.skipped) {
    ++summary_.skipped[*frame.content.skipped];
  } else {
    ++summary_.igmp;
    querier_->receive(frame.content);
  }
}

// The time of a frame follows from the latest one before it, so that frames after a shortened gap
// keep their distances, and a frame out of order does not make a gap of its own.
Seconds CaptureReplay::timeOf(const CaptureFile::Frame& frame) {
  const Seconds passed = frame.time - lastStamp_;
  if (passed < 0.0) {
    ++summary_.backwards;
    return Mox::now();
  }
  lastStamp_ = frame.time;
  if (passed > options_.maxGap) {
    ++summary_.shortenedGaps;
    shift_ += passed - options_.maxGap;
  }
  return std::max(Mox::now(), frame.time - shift_);
}

std::vector<InterfaceView> CaptureReplay::interfaces() const {
  if (!querier_) return {};
  return {{.name = config_->name().string(),
           .address = options_.address,
           .status = querier_->status(),
           .running = true,
           .intake = options_.intake,
           .intakeStatus = querier_->intakeStatus()}};
}

}  // namespace Agent
