// Fixture of the machines' tests: one querier in virtual time with the world around it. Its
// functions start and run the querier and hand in packets; sent queries, notifications, traces and
// logged events are collected as values.
//
// Time begins at 1000 and stands still unless a test moves it. The querier is 10.0.0.5 on "vlan10",
// version 3, all timers on one wheel; a test changes config_ and setup_ before start().
//
//   start();
//   silenceGeneralQueries();
//   receiveV2Report(group);
//   runFor(260.0);
//   EXPECT_EQ(status_->group(group), nullptr);
#pragma once

#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <GmpIgmpQuerier/ModelLogs.h>
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <GmpIgmpQuerierSm/QueryOutput.h>
#include <Ilvo/IgmpHdr.h>
#include <Ilvo/PktManager.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <Mox/Trace.h>

namespace Ilvo {
inline void PrintTo(IpAddr addr, std::ostream* out) { *out << addr.stringValue(); }
}  // namespace Ilvo

namespace Gmp::Igmp::testing {

// One query as the host has to send it.
struct SentQuery {
  Seconds at;
  IpAddr dst;
  std::vector<U8> bytes;

  U8 type() const { return bytes.at(0); }
  U8 code() const { return bytes.at(1); }
  IpAddr group() const { return addrAt(4); }
  bool isV3() const { return bytes.size() >= Ilvo::IgmpV3QueryHdr::bytes; }
  bool sFlag() const { return (bytes.at(8) & 0x08) != 0; }
  unsigned qrv() const { return bytes.at(8) & 0x07U; }
  U8 qqic() const { return bytes.at(9); }
  unsigned numSources() const { return bytes.at(10) * 256U + bytes.at(11); }
  std::vector<IpAddr> sources() const {
    std::vector<IpAddr> all;
    for (size_t at4 = 12; at4 + 4 <= bytes.size(); at4 += 4) all.push_back(addrAt(at4));
    return all;
  }

 private:
  IpAddr addrAt(size_t i) const {
    return {bytes.at(i), bytes.at(i + 1), bytes.at(i + 2), bytes.at(i + 3)};
  }
};

struct TracedLine {
  std::string handle;
  int level;
  std::string function;
  std::string text;
};

struct LoggedEvent {
  std::string name;
  std::string text;
  bool limited;
};

// An attribute log on a real socket whose reader takes nothing until drain().
class AttrLogSocket final : public Mox::NboAttrLog::SocketOutSm {
 public:
  AttrLogSocket() {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends_.data()) != 0) abort();
  }
  ~AttrLogSocket() override {
    close(ends_[0]);
    close(ends_[1]);
  }
  int sockFd() const override { return ends_[0]; }
  int connectionFd() const override { return -1; }
  void fill() {
    while (write(ends_[0], block_.data(), block_.size()) > 0) {
    }
  }
  void drain() {
    while (read(ends_[1], block_.data(), block_.size()) > 0) {
    }
  }

 private:
  std::array<int, 2> ends_{};
  std::array<char, 4096> block_{};
};

class Watch {
 public:
  virtual ~Watch() = default;
};

// Writes "prefix.attribute value" for each change of one entity, "prefix.collection key" for
// members.
template <class E>
class Recorder final : public Watch, public E::NotifieeConst {
 public:
  Recorder(Ptr<const E> entity, std::string prefix, std::vector<std::string>& journal)
      : E::NotifieeConst(entity), prefix_(std::move(prefix)), journal_(journal) {}
  void onAttr(Mox::AttrId id) override {
    E::attributes.forEach([&](Mox::AttrId rowId, const auto& row) {
      if (rowId == id) note(row);
    });
  }
  void onMember(Mox::AttrId id, U32 key) override {
    journal_.push_back(prefix_ + "." + E::attributes.nameOf(id) + " " + IpAddr(key).stringValue());
  }

 private:
  template <class Row>
  void note(const Row& row) {
    std::string line = prefix_ + "." + row.name;
    const E& entity = *this->notifier();
    if constexpr (requires { appendText(line, entity.*row.member); }) {
      line += ' ';
      appendText(line, entity.*row.member);
    } else if constexpr (requires { Mox::appendText(line, entity.*row.member); }) {
      line += ' ';
      Mox::appendText(line, entity.*row.member);
    }
    journal_.push_back(std::move(line));
  }
  std::string prefix_;
  std::vector<std::string>& journal_;
};

class TestBench : public ::testing::Test {
 protected:
  static constexpr Seconds begin_ = 1000.0;
  static constexpr IpAddr own_{10, 0, 0, 5};
  static constexpr IpAddr lower_{10, 0, 0, 2};   // wins against the querier
  static constexpr IpAddr higher_{10, 0, 0, 9};  // loses against it
  static constexpr IpAddr host_{10, 0, 0, 77};
  static constexpr IpAddr group_{239, 1, 1, 1};
  static constexpr IpAddr group2_{239, 1, 1, 2};
  static constexpr IpAddr source_{192, 0, 2, 1};

  struct Setup {
    IpAddr ipAddr = own_;
    U32 mtu = 1500;
    U32 startupQueryIntervalDefault = 0;
    bool debugYieldAfterOne = false;
    Ptr<const Obel::TimerWheel> otherQuerierTimer = nullptr;  // wheel_ for each that is null
    Ptr<const Obel::TimerWheel> queryIntervalTimer = nullptr;
    Ptr<const Obel::TimerWheel> initGroupStatusTimer = nullptr;
  };

  TestBench() {
    freshWorld();
    srand48(1);
    Mox::eventLogSinkIs([this](const Mox::EventLogEntry& e) {
      events_.push_back({e.message.name, e.text, e.limited});
    });
    Mox::traceSinkIs([this](const Mox::TraceLine& line) {
      traces_.push_back(
          {line.handle.name(), line.level, line.where.function, std::string(line.text)});
    });
    tracingIs(true);
  }
  ~TestBench() override {
    release();
    tracingIs(false);
    Mox::traceSinkIs({});
    Mox::eventLogSinkIs({});
    Ilvo::pktManager().failuresIs(0);
  }

  // Makes the querier, on config_, status_ and setup_.
  QuerierSm& start() {
    const auto orWheel = [this](Ptr<const Obel::TimerWheel> wheel) {
      return wheel ? wheel : Ptr<const Obel::TimerWheel>(wheel_);
    };
    querier_ = querierSmFactory(
        config_, status_, setup_.ipAddr, setup_.mtu, setup_.startupQueryIntervalDefault,
        orWheel(setup_.otherQuerierTimer), orWheel(setup_.queryIntervalTimer),
        orWheel(setup_.initGroupStatusTimer), setup_.debugYieldAfterOne, &output_);
    return *querier_;
  }
  // Releases the querier; all that watched it stops watching.
  void release() {
    watches_.clear();
    output_.release();
    querier_ = nullptr;
  }
  // As it was before the first start.
  void freshWorld() {
    release();
    Mox::virtualTimeIs(begin_);
    wheel_ = makePtr<Obel::TimerWheel>(begin_);
    config_ = querierConfigFactory("vlan10");
    config_->querierVersionIs(igmpVersion3);
    status_ = querierStatusFactory();
    attrLog_ = nullptr;
    monitor_ = nullptr;
  }
  // Another start on the same status, as after a restart of the process.
  QuerierSm& restart() {
    release();
    return start();
  }
  // Specific queries are easier to recognise without the general ones.
  void silenceGeneralQueries() { querier_->doSetTimer(QuerierSm::queryIntervalTimerId, never); }
  // A querier that sends no general query by itself, and nothing collected of its start.
  void startQuiet() {
    release();
    start();
    silenceGeneralQueries();
    forget();
  }
  // Of what was collected, traces and journal.
  void forget() {
    traces_.clear();
    journal_.clear();
  }

  Seconds now() const { return Mox::now(); }
  // Fires every timer at its time; then it is `until`.
  void runUntil(Seconds until) {
    for (int turns = 0; wheel_->nextDue() <= until; ++turns) {
      ASSERT_LT(turns, 1000000) << "timers fire without end at " << now();
      Mox::virtualTimeIs(std::max(now(), wheel_->nextDue()));
      wheel_->turn(now());
    }
    if (until > now()) Mox::virtualTimeIs(until);
    wheel_->turn(now());
  }
  void runFor(Seconds duration) { runUntil(now() + duration); }

  // Hands over one whole IPv4 packet.
  void receive(const std::vector<U8>& packet) {
    querier_->doRxPkt(makePtr<Ilvo::Pkt>(std::span<const U8>(packet)));
  }
  void receiveV1Report(IpAddr group, IpAddr from = host_) {
    receive(Ilvo::buildV1Report(group, {.src = from}));
  }
  void receiveV2Report(IpAddr group, IpAddr from = host_) {
    receive(Ilvo::buildV2Report(group, {.src = from}));
  }
  void receiveLeave(IpAddr group, IpAddr from = host_) {
    receive(Ilvo::buildV2Leave(group, {.src = from}));
  }
  void receiveV3Report(const std::vector<Ilvo::V3Record>& records, IpAddr from = host_) {
    receive(Ilvo::buildV3Report(records, {.src = from}));
  }
  // One record; `type` as RFC 3376 4.2.12 numbers them.
  void receiveRecord(U8 type, IpAddr group, std::vector<IpAddr> sources = {}, IpAddr from = host_) {
    receiveV3Report({{.type = type, .group = group, .sources = std::move(sources)}}, from);
  }
  void receiveV1Query(IpAddr from) { receive(Ilvo::buildV1Query({.src = from})); }
  void receiveV2Query(IpAddr from, IpAddr group = {}, U8 code = 100) {
    receive(Ilvo::buildV2Query(group, code, {.src = from}));
  }
  void receiveV3Query(IpAddr from, const Ilvo::V3QueryFields& fields = {}) {
    receive(Ilvo::buildV3Query(fields, {.src = from}));
  }

  Ptr<QuerierGroupSm> groupSm(IpAddr group) const { return querier_->groupSm(group); }
  Ptr<QuerierGroupStatus> groupStatus(IpAddr group) const { return status_->group(group); }

  // The queries sent since the last call.
  std::vector<SentQuery> takeSent() { return std::exchange(sent_, {}); }

  void tracingIs(bool on) {
    const int level = on ? 8 : Mox::TraceHandle::off;
    machineTrace->facilityLevelIs(level);
    igmpPacketTrace->facilityLevelIs(level);
  }
  // How many of the collected lines read exactly so, or begin so.
  size_t traced(std::string_view text) const {
    return tracedIf([&](auto& l) { return l == text; });
  }
  size_t tracedBegin(std::string_view text) const {
    return tracedIf([&](auto& l) { return l.starts_with(text); });
  }
  // The lines of that handle and up to that level, in order.
  std::vector<std::string> traceTexts(std::string_view handle = "", int level = 8) const {
    std::vector<std::string> texts;
    for (const TracedLine& line : traces_) {
      if ((handle.empty() || line.handle == handle) && line.level <= level) {
        texts.push_back(line.text);
      }
    }
    return texts;
  }

  // From now on each change of the entity stands in journal_.
  template <class E>
  void watch(const Ptr<E>& entity, std::string prefix) {
    watches_.push_back(
        std::make_unique<Recorder<std::remove_const_t<E>>>(entity, std::move(prefix), journal_));
  }
  std::vector<std::string> takeJournal() { return std::exchange(journal_, {}); }

  // Gives the querier an attribute log, at first empty.
  void giveAttrLog() {
    attrLog_ = makePtr<AttrLogSocket>();
    monitor_ = gmpAttrLogSmFactory(attrLog_);
    if (querier_) querier_->attrLogSmIs(monitor_);
  }
  // The attribute log's reader stops; the machines find it clogged when they ask next.
  void clog() {
    if (!attrLog_) giveAttrLog();
    attrLog_->fill();
    monitor_->iterUntilBufferCheckIs(1);
  }
  void unclog() {
    attrLog_->drain();
    monitor_->iterUntilBufferCheckIs(1);
  }

  Ptr<Obel::TimerWheel> wheel_;
  Ptr<QuerierConfig> config_;
  Setup setup_;
  Ptr<AttrLogSocket> attrLog_;
  Ptr<GmpAttrLogSm> monitor_;
  std::vector<SentQuery> sent_;
  // Called after a query has been collected.
  std::function<void()> onSent_;
  std::vector<TracedLine> traces_;
  std::vector<LoggedEvent> events_;
  std::vector<std::string> journal_;
  Ptr<QuerierStatus> status_;
  Ptr<QuerierSm> querier_;

 private:
  void collect(const PublishedQuery& query) {
    const auto bytes = query.message->data();
    sent_.push_back({now(), query.dstGroup, {bytes.begin(), bytes.end()}});
    if (onSent_) onSent_();
  }
  template <class F>
  size_t tracedIf(F&& holds) const {
    const auto n = std::count_if(traces_.begin(), traces_.end(),
                                 [&](const TracedLine& line) { return holds(line.text); });
    return static_cast<size_t>(n);
  }

  std::vector<std::unique_ptr<Watch>> watches_;
  QueryOutput output_{[this](const PublishedQuery& query) { collect(query); }};
};

}  // namespace Gmp::Igmp::testing
