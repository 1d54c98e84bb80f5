#include <Web/WebServer.h>

#include <charconv>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <Local/LocalListener.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include "WebSession.h"

namespace Agent {

namespace asio = boost::asio;

namespace {

using Tcp = asio::ip::tcp;

constexpr std::string_view pathMark = "unix:";
constexpr std::string_view busyText =
    "HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nRetry-After: 5\r\n"
    "Content-Type: application/json\r\nContent-Length: 50\r\n\r\n"
    "{\"error\":\"64 clients are being answered already\"}\n";

Mox::U16 portOf(const std::string& text) {
  unsigned port = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || stop != end || port > 65535) {
    throw std::invalid_argument(text + " is no port: a number up to 65535");
  }
  return static_cast<Mox::U16>(port);
}

}  // namespace

WebAddress WebAddress::of(const std::string& text) {
  if (text.starts_with(pathMark)) {
    const std::string path = text.substr(pathMark.size());
    if (!path.starts_with('/')) throw std::invalid_argument(path + " is no absolute path");
    return {.address = path, .isPath = true, .isLoopback = true};
  }
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos) {
    throw std::invalid_argument(text + " has no port, as 127.0.0.1:9645 has");
  }
  std::string host = text.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string::npos) {
    throw std::invalid_argument(text + " has an IPv6 address without brackets");
  }
  boost::system::error_code error;
  const asio::ip::address address = asio::ip::make_address(host, error);
  if (error) throw std::invalid_argument(host + " is no IP address");
  return {.address = address.to_string(),
          .port = portOf(text.substr(colon + 1)),
          .isLoopback = address.is_loopback()};
}

// Where clients connect.
class WebServer::Acceptor {
 public:
  virtual ~Acceptor() = default;
  virtual Mox::U16 port() const { return 0; }

  class OfTcp;
  class OfPath;
};

class WebServer::Acceptor::OfTcp final : public Acceptor {
 public:
  OfTcp(WebServer& server, const WebAddress& address)
      : server_(server), acceptor_(server.loop_.io()), retry_(server.loop_.io()) {
    const Tcp::endpoint endpoint(asio::ip::make_address(address.address), address.port);
    try {
      acceptor_.open(endpoint.protocol());
      acceptor_.set_option(Tcp::acceptor::reuse_address(true));
      acceptor_.bind(endpoint);
      acceptor_.listen();
    } catch (const boost::system::system_error& error) {
      throw std::runtime_error(
          fmt::format("cannot serve at {} port {}: {}; choose another one "
                      "with --listen",
                      address.address, address.port, error.code().message()));
    }
    accept();
  }
  Mox::U16 port() const override { return acceptor_.local_endpoint().port(); }

 private:
  void accept() {
    acceptor_.async_accept([this](boost::system::error_code error, Tcp::socket socket) {
      if (error == asio::error::operation_aborted) return;
      if (error) {
        wait();
        return;
      }
      server_.accepted(Descriptor(socket.release()));
      accept();
    });
  }
  // There may be a free descriptor later.
  void wait() {
    retry_.expires_after(std::chrono::seconds(1));
    retry_.async_wait([this](boost::system::error_code error) {
      if (!error) accept();
    });
  }

  WebServer& server_;
  Tcp::acceptor acceptor_;
  asio::steady_timer retry_;
};

class WebServer::Acceptor::OfPath final : public Acceptor {
 public:
  OfPath(WebServer& server, const WebAddress& address)
      : local_(server.loop_.io(), {.path = address.address, .what = "the page"},
               server.loop_.wheel(),
               [&server](Descriptor socket) { server.accepted(std::move(socket)); }) {}

 private:
  LocalListener local_;
};

WebServer::WebServer(EventLoop& loop, const WebRoutes& routes, Setup setup)
    : loop_(loop), routes_(routes), setup_(std::move(setup)), hosts_(setup_.hosts) {}

WebServer::~WebServer() {
  acceptor_.reset();
  for (const auto& [key, session] : sessions_) session->close();
}

void WebServer::start() {
  if (setup_.address.isPath) {
    acceptor_ = std::make_unique<Acceptor::OfPath>(*this, setup_.address);
  } else {
    acceptor_ = std::make_unique<Acceptor::OfTcp>(*this, setup_.address);
  }
}

Mox::U16 WebServer::port() const { return acceptor_->port(); }

void WebServer::accepted(Descriptor client) {
  sockaddr_storage own{};
  socklen_t size = sizeof(own);
  if (getsockname(client.fd(), reinterpret_cast<sockaddr*>(&own), &size) != 0) return;
  if (sessions() == mostSessions && !endOldestIdle()) {
    ++refused_;
    // It fits into the buffer of a new connection; a client that has gone needs no answer.
    send(client.fd(), busyText.data(), busyText.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return;
  }
  const int protocol = own.ss_family == AF_UNIX ? 0 : IPPROTO_TCP;
  WebSession::Socket socket(loop_.io(), {own.ss_family, protocol}, client.fd());
  client.released();
  const auto session = std::make_shared<WebSession>(*this, std::move(socket));
  sessions_.emplace(session.get(), session);
  session->start();
}

WebAnswer WebServer::answer(const WebRequest& request) {
  ++requests_;
  return routes_.answer(request);
}

// A place that only waits for a request is given to the client that is here now: clients that send
// nothing keep nobody out.
bool WebServer::endOldestIdle() {
  auto oldest = sessions_.end();
  for (auto at = sessions_.begin(); at != sessions_.end(); ++at) {
    if (!at->second->isReading()) continue;
    if (oldest == sessions_.end() || at->second->readsSince() < oldest->second->readsSince()) {
      oldest = at;
    }
  }
  if (oldest == sessions_.end()) return false;
  oldest->second->close();
  sessions_.erase(oldest);
  return true;
}

void WebServer::ended(const WebSession* session) { sessions_.erase(session); }

}  // namespace Agent
