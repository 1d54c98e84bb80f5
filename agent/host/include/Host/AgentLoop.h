// The live agent: queriers on real interfaces, one event loop, one thread, one timer wheel.
//
// It sleeps until a packet, a timer, a change of an interface or a signal wakes it. Real time is
// the activity clock's, and the wheel is turned before whatever happens and after it.
//
//   AgentLoop loop({.interfaces = {{"eth0", config}}}, *sink);
//   loop.run();  // until SIGINT or SIGTERM
//   printState(stdout, StatePart::everything, loop.views(), Mox::now(), Format::text);
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <Events/Event.h>
#include <Host/InterfaceQuerier.h>
#include <Link/LinkMonitor.h>
#include <Report/StateReport.h>
#include <Server/AttrLogServer.h>
#include <Server/RequestServer.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

namespace Agent {

class AgentLoop {
 public:
  struct Setup {
    std::vector<InterfaceQuerier::Setup> interfaces;
    bool tellQueries = false;                          // an event for each query sent
    std::function<void()> onStateWanted;               // SIGUSR1
    std::optional<AttrLogServer::Setup> attrLog = {};  // none: nobody else sees the state
    bool attrLogRequired = false;  // else it is told and done without where it cannot be served
    // Requests are served beside the attribute log, on the same terms.
  };

  // Its queriers run from here on. Throws std::system_error when the interfaces cannot be watched,
  // and std::runtime_error when the attribute log or requests cannot be served.
  AgentLoop(const Setup& setup, EventSink& sink);
  ~AgentLoop();
  AgentLoop(const AgentLoop&) = delete;
  AgentLoop& operator=(const AgentLoop&) = delete;

  // Until SIGINT or SIGTERM.
  void run();
  std::vector<InterfaceView> views() const;

 private:
  std::unique_ptr<AttrLogServer> attrLogServed(const Setup& setup, EventSink& sink);
  // What requests can read by path: what the attribute log serves, and the machines behind it.
  ObjectRoots roots() const;
  std::unique_ptr<RequestServer> requestsServed(const Setup& setup, EventSink& sink);
  void publish(const InterfaceQuerier& querier);
  void handleLink(const std::string& name, const Link* link);
  void handleSignal(int number);
  void waitForSignal();
  // Fires what is due, tells what came of it, and sleeps until the next.
  void turn();
  // The same around what others change: it is told at once.
  void turnAndTell();
  void sleepUntilDue();

  boost::asio::io_context io_{1};
  boost::asio::signal_set signals_{io_};
  boost::asio::steady_timer timer_{io_};
  Mox::Seconds timerSet_ = Mox::never;  // what timer_ waits for
  const Mox::Ptr<Obel::TimerWheel> wheel_;
  const std::function<void()> onStateWanted_;
  const std::unique_ptr<AttrLogServer> attrLog_;  // null for none
  const InterfaceQuerier::Services services_;
  std::vector<std::unique_ptr<InterfaceQuerier>> queriers_;
  const std::unique_ptr<RequestServer> requests_;  // null for none
  LinkMonitor links_;
};

}  // namespace Agent
