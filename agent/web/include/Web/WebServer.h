// Serves the agent's state over HTTP/1.1, for reading only, to at most `mostSessions` clients.
//
// A client that sends slowly, takes slowly or does nothing is disconnected after some time, and
// makes nobody else wait. Handlers run in the loop's thread.
//
//   WebServer server(loop, routes, {.address = WebAddress::of("127.0.0.1:9645")});
//   server.start();
//   loop.run();
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <variant>

#include <Local/Descriptor.h>
#include <Local/EventLoop.h>
#include <MoxBase/Types.h>
#include <Web/WebHosts.h>
#include <Web/WebRoutes.h>

namespace Agent {

// "127.0.0.1:9645", "[::1]:9645" or "unix:/run/igmpq-web/web.sock". Nothing else has a form.
struct WebAddress {
  std::string address = {};  // of the host, or the path
  Mox::U16 port = 0;
  bool isPath = false;
  bool isLoopback = false;  // no other machine can reach it

  // Throws std::invalid_argument with what is wrong.
  static WebAddress of(const std::string& text);
};

class WebServer {
 public:
  static constexpr size_t mostSessions = 64;
  static constexpr size_t mostHeaderBytes = size_t{8} * 1024;
  // A request must have arrived, and a part of an answer be taken, within that time.
  static constexpr std::chrono::seconds patience{30};
  // A client that only waits for events is sent something so often.
  static constexpr std::chrono::seconds idleInterval{15};

  struct Setup {
    WebAddress address;
    std::set<std::string> hosts = {};  // names of this server besides addresses and localhost
    std::chrono::milliseconds patience = WebServer::patience;
    std::chrono::milliseconds idleInterval = WebServer::idleInterval;
  };

  WebServer(EventLoop& loop, const WebRoutes& routes, Setup setup);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // Throws std::runtime_error with the reason and a remedy when it cannot serve there.
  void start();
  // Serves a client that is connected there, as those that connect to its address.
  void accepted(Descriptor client);
  // The port of its address, which the kernel has chosen if that was 0.
  Mox::U16 port() const;
  size_t sessions() const { return sessions_.size(); }
  // Requests that were answered, and connections that were refused since there were too many.
  Mox::U64 requests() const { return requests_; }
  Mox::U64 refused() const { return refused_; }

 private:
  class Acceptor;
  friend class WebSession;

  // False when all sessions are being answered.
  bool endOldestIdle();
  WebAnswer answer(const WebRequest& request);
  void ended(const class WebSession* session);

  EventLoop& loop_;
  const WebRoutes& routes_;
  const Setup setup_;
  const WebHosts hosts_;
  std::unique_ptr<Acceptor> acceptor_;
  std::map<const class WebSession*, std::shared_ptr<class WebSession>> sessions_;
  Mox::U64 requests_ = 0;
  Mox::U64 refused_ = 0;
};

}  // namespace Agent
