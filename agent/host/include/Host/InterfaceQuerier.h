// The querier of one interface, with what it needs of the machine around it.
//
// It runs while the interface can carry it: there, up, with a carrier and an IPv4 address. While it
// cannot, the state stays as it is, and the querier that runs afterwards takes the groups over. A
// new address makes the link elect its querier anew. What goes wrong on the way is told as an
// event, each kind of trouble once in a while, and tried again; it never ends the process.
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
#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Ilvo/IntfBoundaryStatus.h>
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
  // What its host does for it; outlives it.
  struct Services {
    Mox::Ptr<const Obel::TimerWheel> wheel;
    // Turns the wheel to the real now. Called before and after each packet.
    std::function<void()> turn;
    PortOpener openPort;
    EventSink& sink;
    bool tellQueries = false;                          // an event for each query sent
    Mox::Ptr<Gmp::Igmp::GmpAttrLogSm> attrLogSm = {};  // null for a log that nobody reads
  };
  struct Setup {
    std::string name;
    Mox::Ptr<Gmp::Igmp::QuerierConfig> config;
    Mox::Ptr<const Ilvo::IntfBoundaryStatus> boundary = {};  // null for none
  };

  InterfaceQuerier(const Services& services, const Setup& setup);
  ~InterfaceQuerier() override;

  const std::string& name() const { return setup_.name; }
  const Mox::Ptr<Gmp::Igmp::QuerierConfig>& config() const { return setup_.config; }
  const Mox::Ptr<Gmp::Igmp::QuerierStatus>& status() const { return status_; }
  const Mox::Ptr<InterfaceState>& state() const { return state_; }

  // What the kernel says of the interface now; null when there is none of that name.
  void linkIs(const Link* link);
  // Tells what has changed in the state; after each turn of the wheel.
  void flush();

  // Null while the interface cannot carry it.
  const Mox::Ptr<Gmp::Igmp::QuerierSm>& querier() const { return querier_; }
  bool running() const { return querier_ != nullptr; }
  InterfaceView view() const;

 private:
  class Output;
  class Election;
  enum class Presence { unknown, up, down, gone };

  void start();
  void stop();
  void follow(const Link& link);
  void portIs(std::unique_ptr<FramePort> port);
  void ipAddrIs(Ilvo::IpAddr addr);
  void presenceIs(Presence presence);
  void handleCare();
  void transmit();
  void rxFrame(std::span<const Mox::U8> frame) override;
  void rxBatchEnd() override;
  void portFailed(const std::string& why) override;
  void tell(Event::Kind kind, std::string text = {});
  // False when the same trouble was told a moment ago.
  bool tellTrouble(const std::string& key, const std::string& text);

  const Services& services_;
  const Setup setup_;
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_;
  const Mox::Ptr<InterfaceState> state_;
  const std::unique_ptr<Election> election_;
  StatusWatcher watcher_;
  Link link_;  // as it was told last
  Presence presence_ = Presence::unknown;
  Ilvo::IpAddr ipAddr_;
  std::unique_ptr<FramePort> port_;
  std::vector<Mox::Ptr<Ilvo::Pkt>> batch_;  // heard, to be handled when it is complete
  Gmp::Igmp::Ptr<Gmp::Igmp::QuerierSm> querier_;
  std::unique_ptr<Output> output_;
  std::map<std::string, Mox::Seconds> troubleTold_;  // when, by kind
  Mox::U64 droppedTold_ = 0;
  Obel::TimerReactor<InterfaceQuerier, &InterfaceQuerier::handleCare> care_;
};

}  // namespace Agent
