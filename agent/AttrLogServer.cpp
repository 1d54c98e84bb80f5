#include <Agent/AttrLogServer.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>

#include "AttrLogPeer.h"

namespace Agent {

using boost::asio::local::stream_protocol;
using Mox::Seconds;

namespace {

constexpr Seconds careInterval = 1.0;
constexpr Seconds helloTimeout = 10.0;  // for a peer that connects and says nothing

Mox::EventLogHandle peerDropped({
    .name = "IGMPQ_ATTR_LOG_PEER_DROPPED",
    .severity = 4,
    .format = "Disconnected %s from the attribute log: %s.",
    .explanation = "A reader or writer of the attribute log broke its rules, was not permitted "
                   "what it tried, or took nothing for too long.",
    .recommendedAction = "Look at the process that the message names; its copy is out of date.",
    .interval = 60.0,
    .burst = 1.0,
    .flag = 0,
});

// Which descriptor is watched is told as peers come, go and stall.
class NoSocketYet final : public Mox::NboAttrLog::SocketOutSm {
 public:
  int sockFd() const override { return 0; }
  int connectionFd() const override { return -1; }
};

[[noreturn]] void fail(const std::string& path, const std::string& why) {
  throw std::runtime_error(fmt::format("cannot serve the attribute log at {}: {}", path, why));
}

// A socket file that nobody listens at is what an agent that was killed left behind.
void removeStale(boost::asio::io_context& io, const std::string& path) {
  boost::system::error_code failed;
  stream_protocol::socket(io).connect(stream_protocol::endpoint(path), failed);
  if (!failed) fail(path, "another agent serves there; choose another path with --socket");
  if (failed == boost::system::errc::connection_refused) std::filesystem::remove(path);
}

}  // namespace

AttrLogServer::AttrLogServer(boost::asio::io_context& io, Setup setup,
                             const Mox::Ptr<const Obel::TimerWheel>& wheel,
                             std::function<void()> turn)
    : io_(io),
      setup_(std::move(setup)),
      turn_(std::move(turn)),
      monitor_(Gmp::Igmp::gmpAttrLogSmFactory(Mox::makePtr<NoSocketYet>())),
      acceptor_(io),
      care_(wheel, *this) {
  listen();
  accept();
  care_.timeMinIs(Mox::now() + careInterval);
}

AttrLogServer::~AttrLogServer() {
  monitor_->attrLogSockFdIs(-1);
  for (const auto& peer : peers_) peer->close();
  std::error_code ignored;
  std::filesystem::remove(setup_.path, ignored);
}

void AttrLogServer::listen() {
  const std::string& path = setup_.path;
  if (path.size() >= 108) fail(path, "the path is too long for a socket");
  try {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    removeStale(io_, path);
    acceptor_.open();
    acceptor_.bind(stream_protocol::endpoint(path));
    std::filesystem::permissions(path, std::filesystem::perms(0660));
    acceptor_.listen();
  } catch (const std::system_error& error) {
    fail(path, error.code().message());
  }
}

// Without a free descriptor the next one is taken in when the care comes round: the kernel keeps
// it.
void AttrLogServer::accept() {
  acceptor_.async_accept(
      [this](const boost::system::error_code& failed, stream_protocol::socket socket) {
        if (failed == boost::asio::error::operation_aborted) return;  // the server has gone
        if (failed) {
          acceptLater_ = true;
          return;
        }
        peers_.push_back(std::make_shared<Peer>(*this, std::move(socket)));
        peers_.back()->start();
        accept();
      });
}

void AttrLogServer::handleCare() {
  care_.timeMinIs(Mox::now() + careInterval);
  if (std::exchange(acceptLater_, false)) accept();
  const Seconds now = Mox::now();
  for (const auto& peer : std::vector(peers_)) {
    if (peer->stalledSince() + setup_.stallTimeout <= now) {
      peerDel(*peer, fmt::format("it took nothing for {} s", setup_.stallTimeout));
    } else if (!peer->greeted() && peer->connectedSince() + helloTimeout <= now) {
      peerDel(*peer, "it said no hello");
    }
  }
  watchMostCongested();
}

// The monitor looks at one socket; the one with the most bytes queued says what the others wait
// for.
void AttrLogServer::watch(Peer& peer) {
  const int watched = monitor_->attrLogSockFd();
  if (watched == peer.fd()) return;
  if (watched == -1 || peer.queued() > monitor_->getAttrLogKernBufferUsage()) {
    monitor_->attrLogSockFdIs(peer.fd());
  }
}

void AttrLogServer::watchMostCongested() {
  Peer* most = nullptr;
  int queued = -1;
  for (const auto& peer : peers_) {
    const int bytes = peer->queued();
    if (bytes > queued) {
      most = peer.get();
      queued = bytes;
    }
  }
  monitor_->attrLogSockFdIs(most == nullptr ? -1 : most->fd());
}

void AttrLogServer::peerDel(Peer& peer, const std::string& why) {
  const auto found =
      std::ranges::find_if(peers_, [&](const auto& held) { return held.get() == &peer; });
  if (found == peers_.end()) return;
  const std::shared_ptr<Peer> held = *found;
  peers_.erase(found);
  // A descriptor that is closed while it is watched could not be asked any more.
  if (monitor_->attrLogSockFd() == held->fd()) watchMostCongested();
  if (!why.empty()) peerDropped.log(held->name(), why);
  held->close();
}

}  // namespace Agent
