// The querier of one interface, with its port, its status and its events.
//
// It runs while the interface can carry it: present, up, with a carrier and an IPv4 address. While
// it does not run, the status stays as it is, and the next querier takes the groups over. A
// new address starts a new election. A problem is reported as an event, each kind at most once a
// minute, and the operation is tried again; no problem ends the process.
//
//   InterfaceQuerier querier(services, {.name = "eth0", .config = config});
//   querier.linkIs(links.find("eth0"));  // and at each of its changes
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <Events/Event.h>
#include <Events/StatusWatcher.h>
#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <GmpIgmpQuerierSm/QueryOutput.h>
#include <Host/InterfaceSetup.h>
#include <Ilvo/Pkt.h>
#include <Link/FramePort.h>
#include <Link/LinkTable.h>
#include <Obel/TimerReactor.h>
#include <Obel/TimerWheel.h>
#include <Report/InterfaceState.h>
#include <Report/InterfaceView.h>

namespace Agent {

class InterfaceQuerier final : private FrameReceiver {
 public:
  // What its host provides; outlives it.
  struct Services {
    Mox::Ptr<const Obel::TimerWheel> wheel;
    // Turns the wheel to the real now. Called before and after each packet.
    std::function<void()> turn;
    PortOpener openPort;
    EventSink& sink;
    bool reportQueries = false;                        // an event for each query sent
    Mox::Ptr<Gmp::Igmp::GmpAttrLogSm> attrLogSm = {};  // null where no log is served
  };

  InterfaceQuerier(const Services& services, const InterfaceSetup& setup);
  ~InterfaceQuerier() override;

  const std::string& name() const { return setup_.name; }
  const Mox::Ptr<Gmp::Igmp::QuerierConfig>& config() const { return setup_.config; }
  const Mox::Ptr<Gmp::Igmp::QuerierStatus>& status() const { return status_; }
  const Mox::Ptr<InterfaceState>& state() const { return state_; }

  // The interface as the kernel describes it now; null when there is none of that name.
  void linkIs(const Link* link);
  // Reports what has changed in the status; to be called after each turn of the wheel.
  void flush();

  // Null while the interface cannot carry it.
  const Mox::Ptr<Gmp::Igmp::QuerierSm>& querier() const { return querier_; }
  bool running() const { return querier_ != nullptr; }
  InterfaceView view() const;

 private:
  class Election;
  enum class Presence { unknown, up, down, gone };

  void start();
  void stop();
  void follow(const Link& link);
  void portIs(std::unique_ptr<FramePort> port);
  void ipAddrIs(Ilvo::IpAddr addr);
  void presenceIs(Presence presence);
  void handlePortTimer();
  void transmit(const Gmp::Igmp::PublishedQuery& query);
  void rxFrame(std::span<const Mox::U8> frame) override;
  void rxBatchEnd() override;
  void portFailed(const std::string& why) override;
  void report(Event::Kind kind, std::string text = {});
  // False when the same problem was reported less than a minute ago: nothing is reported then.
  bool reportProblem(const std::string& key, const std::string& text);

  const Services& services_;
  const InterfaceSetup setup_;
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_;
  const Mox::Ptr<InterfaceState> state_;
  const std::unique_ptr<Election> election_;
  StatusWatcher watcher_;
  Link link_;  // as linkIs was called last
  Presence presence_ = Presence::unknown;
  Ilvo::IpAddr ipAddr_;
  std::unique_ptr<FramePort> port_;
  std::vector<Mox::Ptr<Ilvo::Pkt>> batch_;  // received, handled when the batch is complete
  Gmp::Igmp::QueryOutput output_{
      [this](const Gmp::Igmp::PublishedQuery& query) { transmit(query); }};
  Gmp::Igmp::Ptr<Gmp::Igmp::QuerierSm> querier_;
  std::map<std::string, Mox::Seconds> problemReported_;  // the time, by kind
  Mox::U64 droppedReported_ = 0;
  Obel::TimerReactor<InterfaceQuerier, &InterfaceQuerier::handlePortTimer> portTimer_;
};

}  // namespace Agent
