// The querier of one interface, with its port, its intake, its status and its events.
//
// It runs while the interface can carry it: present, up, with a carrier and an IPv4 address. While
// it does not run, the status stays as it is, and the next querier takes the groups over. A
// new address starts a new election. It can begin with the status that an agent before has left: if
// that agent was the querier, the first query is sent at once. A problem is reported as an event,
// each kind at most once a minute, and the operation is tried again; no problem ends the process.
//
// Packets are handled before the timers that are due at the same time: its host reads all ports,
// turns the wheel and then flushes what has changed.
//
//   InterfaceQuerier querier(services, {.name = "eth0", .config = config});
//   querier.linkIs(links.find("eth0"));  // and at each of its changes
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <Events/Event.h>
#include <Events/StatusWatcher.h>
#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <GmpIgmpQuerierSm/QueryOutput.h>
#include <Ilvo/Pkt.h>
#include <Intake/Intake.h>
#include <Link/FramePort.h>
#include <Link/LinkTable.h>
#include <Obel/TimerReactor.h>
#include <Obel/TimerWheel.h>
#include <Report/InterfaceState.h>
#include <Report/InterfaceView.h>
#include "DeferredPackets.h"
#include "InterfaceSetup.h"
#include "ReceivedBatch.h"

namespace Agent {

class InterfaceQuerier final : private FrameReceiver, private IntakeWatcher {
 public:
  // What its host provides; outlives it.
  struct Services {
    Mox::Ptr<const Obel::TimerWheel> wheel;
    PortOpener openPort;
    EventSink& sink;
    IntakeProcess& process;
    ReceivedBatch& batch;
    StatusWatcher::Pending* pending = nullptr;  // flushed by the host
    // Called with the time from when a general query was due until it is sent; may be empty.
    std::function<void(Mox::Seconds delay)> onQuery = {};
    bool reportQueries = false;  // an event for each query sent
    EventScope eventScope = EventScope::changes;
    Mox::Ptr<Gmp::Igmp::GmpAttrLogSm> attrLogSm = {};  // null where no log is served
  };

  InterfaceQuerier(const Services& services, const InterfaceSetup& setup);
  ~InterfaceQuerier() override;

  const std::string& name() const { return setup_.name; }
  const Mox::Ptr<Gmp::Igmp::QuerierConfig>& config() const { return setup_.config; }
  const Mox::Ptr<Gmp::Igmp::QuerierStatus>& status() const { return status_; }
  const Mox::Ptr<InterfaceState>& state() const { return state_; }
  const Mox::Ptr<IntakeConfig>& intakeConfig() const { return setup_.intake; }
  const Mox::Ptr<IntakeStatus>& intakeStatus() const { return intakeStatus_; }

  // Publishes whose state this is, before the interface is started: an agent that is killed first
  // leaves the state in a store, and the next one takes it over only if it is that of the same
  // interface.
  void publishLink(const Link& link);
  // Opens the port where the interface can carry the querier now, which begins with the next
  // linkIs: for a host that must know before that it can be opened. Throws std::runtime_error.
  void prepare(const Link* link);
  // The interface as the kernel describes it now; null when there is none of that name.
  void linkIs(const Link* link);
  // The host handled nothing for that long after a timer was due: it was stopped, perhaps since
  // some time before, and hosts that were asked meanwhile may have answered in vain. A querier that
  // could count that as their silence is replaced by one that begins anew on the same status: after
  // every gap longer than the query response interval.
  void rebuildAfterGap(Mox::Seconds late);

  // Null for none.
  void boundaryIs(Mox::Ptr<const Ilvo::IntfBoundaryStatus> boundary);

  // Ends all groups, or only that one, as if their members had left; members join again when the
  // next query asks them. Where there are many, the wheel's next turns end those that are left.
  // Returns how many groups there were.
  size_t clearGroups(std::optional<Ilvo::IpAddr> only);

  // Stops, and ends all groups in the same way. The host deletes it once hasEnded().
  void end();
  bool hasEnded() const { return status_->group().empty() && retired_.empty(); }

  // For a host that ends and turns the wheel no more: the state stays as it is.
  void closePort() { portIs(nullptr); }

  // Null while the interface cannot carry it.
  const Mox::Ptr<Gmp::Igmp::QuerierSm>& querier() const { return querier_; }
  bool running() const { return querier_ != nullptr; }
  InterfaceView view() const;

 private:
  class Election;
  // A query that the kernel had no memory for.
  struct Unsent {
    Gmp::Igmp::PublishedQuery query;
    Mox::Seconds until;  // it is not tried again after that
  };
  enum class Presence { unknown, up, down, gone };

  void start();
  void makeQuerier();
  void querierDel();
  void stop();
  void stopQuerier();
  void follow(const Link& link);
  void intakeLinkIs();
  void portIs(std::unique_ptr<FramePort> port);
  void ipAddrIs(Ilvo::IpAddr addr);
  void presenceIs(Presence presence);
  Mox::Seconds portCheckInterval() const;
  void handlePortTimer();
  void handleResendTimer();
  void transmit(const Gmp::Igmp::PublishedQuery& query);
  void reportDelay() const;
  // False when another attempt may succeed.
  bool send(const Gmp::Igmp::PublishedQuery& query);
  void resendLater(Unsent unsent);
  void dropUnsent();
  void takeCounts();
  void reportCounts();
  void rxPacket(const RxPacket& packet) override;
  void rxBatchEnd() override;
  void handIn(const ReceivedBatch::Received& received);
  std::span<const Mox::U8> handInNow(const ReceivedBatch::Received& received, size_t mostCost);
  size_t costLeft() const;
  void deferRest(const ReceivedBatch::Received& received, std::span<const Mox::U8> rest);
  void handleDeferredTimer();
  void deferredLost();
  void handleClearTimer();
  void handleRetireTimer();
  void onIntakeEvent(const IntakeEvent& event) override;
  void portFailed(const std::string& why) override;
  void report(Event::Kind kind, std::string text = {});
  // False when the same problem was reported less than a minute ago: nothing is reported then.
  bool reportProblem(const std::string& key, const std::string& text);

  const Services& services_;
  InterfaceSetup setup_;
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_;
  const Mox::Ptr<InterfaceState> state_;
  const std::unique_ptr<Election> election_;
  StatusWatcher watcher_;
  const Mox::Ptr<IntakeStatus> intakeStatus_;
  Intake intake_;
  Link link_;  // as linkIs was called last
  Presence presence_ = Presence::unknown;
  Ilvo::IpAddr ipAddr_;
  std::unique_ptr<FramePort> port_;
  Gmp::Igmp::QueryOutput output_{
      [this](const Gmp::Igmp::PublishedQuery& query) { transmit(query); }};
  Gmp::Igmp::Ptr<Gmp::Igmp::QuerierSm> querier_;
  // Queriers that have ended and whose groups are still to be deleted; how far the first one is.
  std::deque<Gmp::Igmp::Ptr<Gmp::Igmp::QuerierSm>> retired_;
  Mox::U64 retireBookmark_ = 0;
  std::deque<Ilvo::IpAddr> clearing_;   // groups that are still to be ended
  bool isEnding_ = false;               // its interface is no longer configured
  std::vector<Ilvo::IpAddr> sentFrom_;  // the addresses of the queries sent through the port
  std::deque<Unsent> unsent_;
  DeferredPackets deferred_;
  size_t blockCost_ = 0;  // of the packets of this block so far, as the intake counts it
  std::map<std::string, Mox::Seconds> problemReported_;  // the time, by kind
  PortCounts counted_;                                   // of the port, as the state has them
  PortCounts reported_;                                  // of all ports, as events reported them
  Obel::TimerReactor<InterfaceQuerier, &InterfaceQuerier::handlePortTimer> portTimer_;
  Obel::TimerReactor<InterfaceQuerier, &InterfaceQuerier::handleResendTimer> resendTimer_;
  Obel::TimerReactor<InterfaceQuerier, &InterfaceQuerier::handleDeferredTimer> deferredTimer_;
  Obel::TimerReactor<InterfaceQuerier, &InterfaceQuerier::handleClearTimer> clearTimer_;
  Obel::TimerReactor<InterfaceQuerier, &InterfaceQuerier::handleRetireTimer> retireTimer_;
};

}  // namespace Agent
