// Replays a capture: a querier receives its frames at their times, in virtual time.
//
// It begins at the time of the first frame, or at 0 if there is none. Before a frame is handed
// over, every timer that is due by its time has fired, at its own time. The sink receives the
// changes of the state and the queries that this querier would have sent, and each packet that the
// intake refused or changed. Clocks may be set while a
// capture runs: where its time runs backwards, the virtual time stands still, and a gap longer than
// `maxGap` is shortened to `maxGap`. The same capture with the same options gives the same events.
// After the replay, the process still has the virtual activity clock and the wall clock of the
// capture.
//
//   CaptureReplay replay(options, config, nullptr, *sink);
//   replay.run(file);
//   printState(stdout, StatePart::everything, replay.interfaces(), Mox::now(), Format::text);
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <Events/Event.h>
#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Ilvo/IntfBoundaryStatus.h>
#include <Ilvo/IpAddr.h>
#include <Intake/IntakeConfig.h>
#include <Intake/IntakeProcess.h>
#include <Intake/PrefixList.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <Replay/CaptureFile.h>
#include <Report/StateReport.h>

namespace Agent {

struct ReplayOptions {
  Ilvo::IpAddr address;           // of the querier; unicast
  Mox::U32 seed = 0;              // of all random delays
  Mox::Seconds until = 0.0;       // how long time goes on after the last frame
  Mox::Seconds maxGap = 86400.0;  // between two frames
  // The rules that decide what the querier sees. Without them it sees everything.
  Mox::Ptr<const IntakeConfig> intake = {};
  // Of the captured link; each address counts as local where none is given.
  PrefixList subnets = {};
  Mox::Ptr<IntakeProcessConfig> process = {};  // needed with intake
};

struct ReplaySummary {
  Mox::U64 frames = 0;
  Mox::U64 igmp = 0;  // frames with IGMP, handed to the querier unless the intake refused them
  Mox::U64 refused = 0;
  Mox::U64 changed = 0;  // by the intake, before the querier saw them
  std::map<SkipReason, Mox::U64> skipped = {};
  Mox::U64 backwards = 0;  // frames whose time was before that of the frame before them
  Mox::U64 shortenedGaps = 0;
  std::string damage = {};  // why reading stopped before the end of the file

  Mox::U64 skippedInAll() const;
};

class CaptureReplay {
 public:
  CaptureReplay(const ReplayOptions& options, Mox::Ptr<const Gmp::Igmp::QuerierConfig> config,
                Mox::Ptr<const Ilvo::IntfBoundaryStatus> boundary, EventSink& sink);
  ~CaptureReplay();
  CaptureReplay(const CaptureReplay&) = delete;
  CaptureReplay& operator=(const CaptureReplay&) = delete;

  // To be called once.
  void run(CaptureFile& file);

  // The time of the first frame.
  Mox::Seconds start() const { return start_; }
  // The one interface; none when the capture held no frame.
  std::vector<InterfaceView> interfaces() const;
  const ReplaySummary& summary() const { return summary_; }

 private:
  class Querier;

  void handIn(const CaptureFile::Frame& frame);
  Mox::Seconds timeOf(const CaptureFile::Frame& frame);

  const ReplayOptions options_;
  const Mox::Ptr<const Gmp::Igmp::QuerierConfig> config_;
  const Mox::Ptr<const Ilvo::IntfBoundaryStatus> boundary_;
  EventSink& sink_;
  ReplaySummary summary_;
  Mox::Seconds start_ = 0.0;
  Mox::Seconds lastStamp_ = 0.0;  // the latest of the frames so far
  Mox::Seconds shift_ = 0.0;      // by which gaps were shortened
  std::unique_ptr<Querier> querier_;
};

// The counts of frames, for people or as a JSON line with "event": "summary".
void printSummary(std::FILE* out, const ReplaySummary& summary, Mox::Seconds now, Format format);
std::string summaryText(const ReplaySummary& summary);
std::string summaryJson(const ReplaySummary& summary, Mox::Seconds now);

}  // namespace Agent
