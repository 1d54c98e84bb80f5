#include <Server/RequestServer.h>

#include <algorithm>
#include <utility>

#include <sys/socket.h>

#include <Local/AgentErrors.h>
#include <Local/LocalConnection.h>
#include <Mox/ActivityClock.h>
#include <Mox/Trace.h>

#include "PeerRefusal.h"
#include "RequestSession.h"

namespace Agent {

namespace {

constexpr const char* serviceName = "requests";

}  // namespace

class RequestServer::Client final : public LocalConnection {
 public:
  Client(RequestServer& server, Descriptor socket, Mox::NboAttrLog::Rights rights)
      : LocalConnection(server.io_, std::move(socket)),
        server_(server),
        session_(server.services_, rights) {}

  void followUp() {
    if (session_.answering()) outputDue();
  }
  // Since when nothing has moved in either direction. A client that waits for the next trace never
  // idles.
  Mox::Seconds idleSince() const {
    return session_.answering() && !isBlocked() ? Mox::never : movedTime_;
  }

 private:
  // Lines wait in the kernel while there is no room for them.
  size_t inputRoom() const override { return session_.room(); }
  void handleInput(std::string_view bytes) override {
    movedTime_ = Mox::now();
    session_.in(bytes);
    outputDue();
  }
  void handleInputEnd() override {
    session_.inEnd();
    if (session_.ended()) return server_.clientDel(*this);  // its place is free at once
    outputDue();
  }
  std::string_view output() override {
    const std::string_view out = session_.out();
    if (session_.isWorking()) outputDue();
    if (session_.ended()) server_.clientDel(*this);
    return out;
  }
  void outputTaken(size_t bytes) override {
    movedTime_ = Mox::now();
    session_.taken(bytes);
    inputDue();
  }
  void handleOutputEnd() override { server_.clientDel(*this); }

  RequestServer& server_;
  RequestSession session_;
  Mox::Seconds movedTime_ = Mox::now();
};

RequestServer::RequestServer(boost::asio::io_context& io, Setup setup,
                             const Mox::Ptr<const Obel::TimerWheel>& wheel,
                             RequestServices services)
    : io_(io),
      wheel_(wheel),
      rightsOf_(std::move(setup.rightsOf)),
      services_(std::move(services)),
      socket_(socketAt(setup.path)) {}

RequestServer::~RequestServer() {
  for (const auto& client : clients_) client->close();
}

std::unique_ptr<LocalListener> RequestServer::socketAt(const std::string& path) {
  return std::make_unique<LocalListener>(
      io_, LocalListener::Setup{.path = path, .what = serviceName}, wheel_,
      [this](Descriptor socket) { accept(std::move(socket)); });
}

void RequestServer::accept(Descriptor socket) {
  const auto rights = rightsOf_(socket.fd());
  if (!rights) return refuse(socket, notPermittedText("read from the agent", readGroupOption));
  if (clients_.size() >= mostClients && !endIdle()) {
    return refuse(socket,
                  "the agent answers no more clients at a time; end one, such as an `igmpq trace "
                  "--follow`");
  }
  clients_.push_back(std::make_shared<Client>(*this, std::move(socket), *rights));
  clients_.back()->start();
}

void RequestServer::refuse(const Descriptor& socket, const std::string& why) const {
  const std::string line = RequestSession::errorLine(why, false);
  ::send(socket.fd(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  reportRefusal(socket.fd(), serviceName, why);
}

bool RequestServer::endIdle() {
  const auto idlest = std::ranges::min_element(
      clients_, {}, [](const auto& client) { return client->idleSince(); });
  if (Mox::now() < (*idlest)->idleSince() + longestIdle) return false;
  clientDel(**idlest);
  return true;
}

void RequestServer::clientDel(const Client& client) {
  const auto found =
      std::ranges::find_if(clients_, [&](const auto& held) { return held.get() == &client; });
  if (found == clients_.end()) return;
  const std::shared_ptr<Client> held = *found;
  clients_.erase(found);
  held->close();
}

void RequestServer::followUp() {
  const Mox::U64 recorded = Mox::brevlog().recorded();
  if (std::exchange(recordedSeen_, recorded) == recorded) return;
  for (const auto& client : std::vector(clients_)) client->followUp();
}

}  // namespace Agent
