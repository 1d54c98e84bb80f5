#include <Server/AttrLogServer.h>

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>

#include "AttrLogPeer.h"

namespace Agent {

using Mox::Seconds;

namespace {

constexpr Seconds pollInterval = 1.0;
constexpr Seconds helloTimeout = 10.0;  // for a peer that connects and sends nothing

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

// The monitor is given its descriptor as peers come, go and stall.
class NoSocketYet final : public Mox::NboAttrLog::SocketOutSm {
 public:
  int sockFd() const override { return 0; }
  int connectionFd() const override { return -1; }
};

}  // namespace

AttrLogServer::AttrLogServer(boost::asio::io_context& io, Setup setup,
                             const Mox::Ptr<const Obel::TimerWheel>& wheel,
                             std::function<void()> turn)
    : io_(io),
      setup_(std::move(setup)),
      turn_(std::move(turn)),
      monitor_(Gmp::Igmp::gmpAttrLogSmFactory(Mox::makePtr<NoSocketYet>())),
      listener_(io, {.path = setup_.path, .what = "the attribute log"}, wheel,
                [this](Descriptor socket) { accept(std::move(socket)); }),
      pollTimer_(wheel, *this) {
  pollTimer_.timeMinIs(Mox::now() + pollInterval);
}

AttrLogServer::~AttrLogServer() {
  monitor_->attrLogSockFdIs(-1);
  for (const auto& peer : peers_) peer->close();
}

void AttrLogServer::accept(Descriptor socket) {
  AttrLogPeer::Handlers handlers{
      .turn = turn_,
      .onBlocked = [this](const AttrLogPeer& peer,
                          bool isBlocked) { handleBlocked(peer, isBlocked); },
      .onEnded = [this](const AttrLogPeer& peer, const std::string& why) { peerDel(peer, why); }};
  peers_.push_back(
      std::make_shared<AttrLogPeer>(io_, std::move(socket), directory_, std::move(handlers)));
  peers_.back()->start();
}

void AttrLogServer::handlePollTimer() {
  pollTimer_.timeMinIs(Mox::now() + pollInterval);
  const Seconds now = Mox::now();
  for (const auto& peer : std::vector(peers_)) {
    if (peer->stalledSince() + setup_.stallTimeout <= now) {
      peerDel(*peer, fmt::format("it took nothing for {} s", setup_.stallTimeout));
    } else if (!peer->greeted() && peer->connectedSince() + helloTimeout <= now) {
      peerDel(*peer, "it sent no hello");
    }
  }
  watchMostCongested();
}

// The monitor watches one socket: the one with the most bytes queued, for which the others wait.
// When that one flows again, it says nothing about the others.
void AttrLogServer::handleBlocked(const AttrLogPeer& peer, bool isBlocked) {
  if (!isBlocked) return watchMostCongested();
  const int watched = monitor_->attrLogSockFd();
  if (watched == peer.fd()) return;
  if (watched == -1 || peer.bytesQueued() > monitor_->getAttrLogKernBufferUsage()) {
    monitor_->attrLogSockFdIs(peer.fd());
  }
}

void AttrLogServer::watchMostCongested() {
  const AttrLogPeer* most = nullptr;
  int queued = -1;
  for (const auto& peer : peers_) {
    const int bytes = peer->bytesQueued();
    if (bytes > queued) {
      most = peer.get();
      queued = bytes;
    }
  }
  monitor_->attrLogSockFdIs(most == nullptr ? -1 : most->fd());
}

void AttrLogServer::peerDel(const AttrLogPeer& peer, const std::string& why) {
  const auto found =
      std::ranges::find_if(peers_, [&](const auto& held) { return held.get() == &peer; });
  if (found == peers_.end()) return;
  const std::shared_ptr<AttrLogPeer> held = *found;
  peers_.erase(found);
  // A descriptor that is closed while it is watched could not be measured any more.
  if (monitor_->attrLogSockFd() == held->fd()) watchMostCongested();
  if (!why.empty()) peerDropped.log(held->name(), why);
  held->close();
}

}  // namespace Agent
