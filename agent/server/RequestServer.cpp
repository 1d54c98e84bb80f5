#include <Server/RequestServer.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <sys/socket.h>

#include <Mox/ActivityClock.h>
#include <Mox/Trace.h>

#include <Local/LocalPeer.h>
#include "RequestSession.h"

namespace Agent {

using Socket = LocalListener::Socket;

class RequestServer::Client final : public std::enable_shared_from_this<Client> {
 public:
  Client(RequestServer& server, Socket socket)
      : server_(server),
        socket_(std::move(socket)),
        session_(server.services_, peerRights(socket_.native_handle())) {}

  void start() { waitReadable(); }
  void followUp() {
    if (session_.answering()) write();
  }
  // Since when neither side has said anything. Who waits for the next trace idles never.
  Mox::Seconds idleSince() const { return waitsForMore() ? Mox::never : movedTime_; }
  // From here on it does nothing, whatever is still pending.
  void close() {
    open_ = false;
    boost::system::error_code ignored;
    socket_.close(ignored);
  }

 private:
  bool waitsForMore() const { return session_.answering() && !waitsWritable_; }
  void write();
  void waitReadable();
  void waitWritable();
  void read();

  RequestServer& server_;
  Socket socket_;
  RequestSession session_;
  Mox::Seconds movedTime_ = Mox::now();
  bool open_ = true;
  bool inEnded_ = false;
  bool waitsReadable_ = false;
  bool waitsWritable_ = false;
};

// Its lines wait in the kernel while there is no room for them.
void RequestServer::Client::waitReadable() {
  if (!open_ || inEnded_ || waitsReadable_ || session_.room() == 0) return;
  waitsReadable_ = true;
  socket_.async_wait(Socket::wait_read, [self = weak_from_this()](const auto& failed) {
    const auto client = self.lock();
    if (client && !failed) client->read();
  });
}

void RequestServer::Client::waitWritable() {
  if (waitsWritable_) return;
  waitsWritable_ = true;
  socket_.async_wait(Socket::wait_write, [self = weak_from_this()](const auto& failed) {
    const auto client = self.lock();
    if (!client || failed) return;
    client->waitsWritable_ = false;
    client->write();
  });
}

void RequestServer::Client::read() {
  waitsReadable_ = false;
  if (!open_) return;
  std::array<char, 4096> bytes;
  const size_t wanted = std::min(bytes.size(), session_.room());
  const ssize_t got =
      wanted == 0 ? 0 : ::recv(socket_.native_handle(), bytes.data(), wanted, MSG_DONTWAIT);
  if (got > 0) {
    movedTime_ = Mox::now();
    session_.in({bytes.data(), static_cast<size_t>(got)});
  } else if (wanted != 0 && (got == 0 || (errno != EAGAIN && errno != EINTR))) {
    inEnded_ = true;
    session_.inEnd();
  }
  write();
  waitReadable();
}

// One piece at a time: the next one waits until the loop has seen to packets and timers.
void RequestServer::Client::write() {
  if (!open_ || waitsWritable_) return;
  const auto alive = shared_from_this();
  const std::string_view out = session_.out();
  if (out.empty()) {
    if (session_.ended()) server_.clientDel(*this);
    return;
  }
  const ssize_t sent =
      ::send(socket_.native_handle(), out.data(), out.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent < 0 && errno != EAGAIN && errno != EINTR) return server_.clientDel(*this);
  if (sent > 0) {
    movedTime_ = Mox::now();
    session_.taken(static_cast<size_t>(sent));
  }
  waitReadable();  // there may be room again
  waitWritable();
}

RequestServer::RequestServer(boost::asio::io_context& io, const std::string& path,
                             const Mox::Ptr<const Obel::TimerWheel>& wheel,
                             RequestServices services)
    : services_(std::move(services)),
      listener_(io, {.path = path, .what = "requests"}, wheel,
                [this](Socket socket) { letIn(std::move(socket)); }) {}

RequestServer::~RequestServer() {
  for (const auto& client : clients_) client->close();
}

void RequestServer::letIn(Socket socket) {
  if (clients_.size() >= mostClients && !endIdle()) {
    constexpr std::string_view full =
        "{\"error\":\"the agent answers no more clients at a time; end one, such as an `igmpq "
        "trace "
        "--follow`\"}\n";
    ::send(socket.native_handle(), full.data(), full.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return;
  }
  clients_.push_back(std::make_shared<Client>(*this, std::move(socket)));
  clients_.back()->start();
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
