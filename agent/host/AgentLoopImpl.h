// The parts of the loop: its construction, batches and signals are in AgentLoop.cpp, the reading of
// the configuration again in AgentLoopConfig.cpp.
#pragma once

#include <csignal>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <Client/KeptState.h>
#include <Host/AgentLoop.h>
#include <Link/LinkMonitor.h>
#include <Link/RingPort.h>
#include <Obel/TimerReactor.h>
#include <Server/AttrLogServer.h>
#include <Server/RequestServer.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include "ConfigPlan.h"
#include "InterfaceQuerier.h"
#include "LoopWatch.h"
#include "SuspendedTime.h"
#include "WheelAlarm.h"

namespace Agent {

// With entities of its own, which keep what is set at run time.
InterfaceSetup setupOf(const ConfiguredInterface& configured);

class AgentLoop::Impl {
 public:
  using Queriers = std::vector<std::unique_ptr<InterfaceQuerier>>;

  Impl(const Setup& setup, EventSink& sink);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  Mox::Seconds run();
  std::vector<InterfaceView> views() const;

 private:
  struct NewSockets;

  std::unique_ptr<AttrLogServer> makeAttrLogServer(const Setup& setup, EventSink& sink);
  std::unique_ptr<RequestServer> makeRequestServer(const Setup& setup, EventSink& sink);
  RequestServices services();
  PortOpener portOpener(const Setup& setup);
  // What requests can read by path: what the attribute log serves, and the machines behind it.
  ObjectRoots roots() const;
  RequestServices::Queriers queriersByName() const;
  // Of the configured store; nothing where there is none, or, with an event that says why, where it
  // is not to be taken over.
  KeptState readStore();
  // Each does so as far as the state fits this agent.
  void takeOver(const KeptState& kept, InterfaceSetup& setup);
  void takeOverProcess(const KeptState& kept);
  void takeOverSettings(const std::string& interface, const Mox::Ptr<Mox::EntityBase>& kept,
                        const Mox::Ptr<Mox::EntityBase>& keptConfigured,
                        const Mox::Ptr<Mox::EntityBase>& configured,
                        const Mox::Ptr<Mox::EntityBase>& present);
  void notice(const std::string& interface, std::string text);
  void publishProcess();
  // With the values of the configuration, beside those that hold: they differ where a setting was
  // made at run time.
  void publish(const InterfaceQuerier& querier, const SettingEntities& configured);
  void unpublish(const std::string& interface);
  size_t clearGroups(const std::string& interface, std::optional<Ilvo::IpAddr> group);
  // Reads the configuration again and reports what came of it. Throws std::runtime_error where no
  // file is in use.
  std::vector<ConfigChange> reload();
  void reloadAtSignal();
  std::vector<ConfigChange> takeOverConfig();
  void report(const std::vector<ConfigChange>& changes);
  // Each opens all that it needs, and changes nothing. Throws std::runtime_error.
  std::optional<NewSockets> newSocketsAt(const std::string& path);
  Queriers newQueriers(const ConfigPlan& plan);
  // These cannot fail.
  void serveAt(const Config& next, std::optional<NewSockets> sockets);
  void removeQueriers(const ConfigPlan& plan);
  void applySettings(const ConfigPlan& plan);
  void addQueriers(const ConfigPlan& plan, Queriers added);
  // Of those that are leaving.
  void deleteEmptied();
  bool isLeaving(const std::string& interface) const;
  SettingEntities entitiesOf(const std::string& interface) const;
  std::optional<std::vector<ShownSetting>> shownSettings(const std::string& interface) const;
  std::string serviceStatus() const;
  void handleLink(const std::string& name, const Link* link);
  bool handleNext();
  void startNext();
  void closePorts();
  void waitForEnd();
  void waitForRequestSignal();
  void waitForPackets();
  // Handles the packets that the rings hold, then the timers that are due, then reports what they
  // changed. So an answer that was received counts before the timer that waits for it.
  void handleBatch();
  // After handlers that have taken long.
  void handleBatchIfDue();
  Mox::Seconds batchDuration() const;
  void turnWheel(Mox::Seconds to);
  void seeGap();
  void rebuildNext();
  void reportChanges();
  // Lets the heap give memory back when most of the objects have gone: it does so by itself only
  // for what lies at its end.
  void trimMemory();
  // The next part of the state, if it was requested.
  void reportState();
  // Tries again soon when the output does not take the events now.
  void flushOutput();

  boost::asio::io_context io_{1};
  // From the first moment on: a signal that is not watched ends the process at once, with files
  // left behind. Those of a set wait for each other, and the end must not wait for many reloads.
  boost::asio::signal_set ends_{io_, SIGINT, SIGTERM};
  boost::asio::signal_set requestSignals_{io_, SIGUSR1, SIGHUP};
  const Mox::Ptr<Obel::TimerWheel> wheel_;
  WheelAlarm alarm_{io_, [this] { handleBatch(); }};
  Obel::TimerReactor<Impl, &Impl::flushOutput> outputTimer_{wheel_, *this};
  RingPolls rings_;
  QuerySocket querySocket_;
  boost::asio::posix::stream_descriptor packets_{io_};  // of rings_, which closes it
  boost::asio::steady_timer packetsTimer_{io_};
  StatusWatcher::Pending pending_;
  ConfiguredAgent configured_;  // as it was taken over last
  std::string servedPath_;
  const std::function<Config(const LinkTable&)> configure_;
  const std::function<void(const Config&)> onConfig_;
  const std::function<bool()> onStateRequested_;
  size_t interfaceCount_;
  IntakeProcess process_;
  ReceivedBatch batch_;
  LoopWatch watch_;
  std::unique_ptr<AttrLogServer> attrLog_;  // null for none, and at the end
  InterfaceQuerier::Services services_;
  Queriers queriers_;  // in the order of the configuration
  // No longer in it: their groups end in steps. A successor begins after the last event of that.
  Queriers leaving_;
  std::map<std::string, InterfaceQuerier*, std::less<>> queriersByName_;
  std::deque<std::string> starting_;         // queriers that have not been given their link yet
  std::unique_ptr<RequestServer> requests_;  // null for none, and at the end
  LinkMonitor links_;
  std::deque<std::string> rebuilding_;  // queriers that have not been rebuilt after the last gap
  Mox::Seconds gap_ = 0.0;              // how long that was
  ServiceManager serviceManager_;
  bool isStarted_ = false;
  bool inBatch_ = false;
  bool stateRequested_ = false;
  Mox::Seconds endSignalled_ = 0.0;  // when the signal to end was handled
  size_t mostCells_ = 0;             // bytes of objects, since memory was given back
  Mox::Seconds lastBatchEnd_ = Mox::now();
  SuspendedTime suspended_;
};

}  // namespace Agent
