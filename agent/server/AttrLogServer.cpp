#include <Server/AttrLogServer.h>

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <sys/socket.h>

#include <Local/AgentErrors.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <NboAttrLog/FlowOut.h>

#include "AttrLogPeer.h"
#include "PeerRefusal.h"

namespace Agent {

using Mox::Seconds;
using Mox::NboAttrLog::Session;

namespace {

constexpr const char* serviceName = "the attribute log";
constexpr Seconds pollInterval = 1.0;
// Memory of peers that have gone is given back in steps of a millisecond at most.
constexpr Seconds giveBackInterval = 0.002;
constexpr size_t keysGivenBack = 1000;
constexpr Seconds helloTimeout = 10.0;  // for a peer that connects and sends nothing

Mox::EventLogHandle peerDropped({
    .name = "IGMPQ_ATTR_LOG_PEER_DROPPED",
    .severity = 4,
    .format = "Disconnected %s from the attribute log: %s.",
    .explanation = "A reader or writer of the attribute log broke its rules, was not permitted "
                   "what it tried, or took too little for too long.",
    .recommendedAction = "Look at the process that the message names; its copy is out of date.",
    .interval = 60.0,
    .burst = 1.0,
    .flag = 0,
});

bool isSilent(const std::shared_ptr<AttrLogPeer>& peer) { return !peer->greeted(); }

class Refused final : public Mox::NboAttrLog::SessionHost {
 public:
  void onOutput() override {}
};

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
      wheel_(wheel),
      setup_(std::move(setup)),
      turn_(std::move(turn)),
      monitor_(Gmp::Igmp::gmpAttrLogSmFactory(Mox::makePtr<NoSocketYet>())),
      socket_(socketAt(setup_.path)),
      pollTimer_(wheel, *this) {}

AttrLogServer::~AttrLogServer() {
  monitor_->attrLogSockFdIs(-1);
  for (const auto& peer : peers_) peer->close();
}

std::unique_ptr<LocalListener> AttrLogServer::socketAt(const std::string& path) {
  return std::make_unique<LocalListener>(
      io_, LocalListener::Setup{.path = path, .what = serviceName}, wheel_,
      [this](Descriptor socket) { accept(std::move(socket)); });
}

void AttrLogServer::limitsAre(const RightsOf& rightsOf, Seconds stallTimeout, size_t maxReaders) {
  setup_.rightsOf = rightsOf;
  setup_.stallTimeout = stallTimeout;
  setup_.maxReaders = maxReaders;
}

void AttrLogServer::accept(Descriptor socket) {
  const auto rights = setup_.rightsOf(socket.fd());
  if (!rights) return refuse(socket, notPermittedText("read the attribute log", readGroupOption));
  if (peers_.size() >= setup_.maxReaders && !endLongestSilent()) {
    return refuse(socket, fmt::format("the agent has {} readers, and takes no more; end one, such "
                                      "as an `igmpq watch`, or start the agent with --max-readers",
                                      peers_.size()));
  }
  AttrLogPeer::Handlers handlers{
      .turn = turn_,
      .onBlocked = [this](const AttrLogPeer& peer,
                          bool isBlocked) { handleBlocked(peer, isBlocked); },
      .onEnded = [this](const AttrLogPeer& peer, const std::string& why) { peerDel(peer, why); }};
  const AttrLogPeer::Setup setup{
      .name = setup_.name, .rights = *rights, .stallTimeout = setup_.stallTimeout};
  peers_.push_back(std::make_shared<AttrLogPeer>(io_, std::move(socket), directory_, setup,
                                                 std::move(handlers)));
  peers_.back()->start();
  if (pollTimer_.timeMin() == Mox::never) pollTimer_.timeMinIs(Mox::now() + pollInterval);
  if (silentPeers() > mostSilent) endLongestSilent();
}

void AttrLogServer::refuse(const Descriptor& socket, const std::string& why) const {
  Refused host;
  Session session(host, {.name = setup_.name, .peerName = {}});
  session.refuse(why);
  const auto pending = session.stream().pending();
  ::send(socket.fd(), pending.data(), pending.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  reportRefusal(socket.fd(), serviceName, why);
}

// A process that sends its hello does so at once. One that keeps places without it cannot keep
// others out.
bool AttrLogServer::endLongestSilent() {
  const auto found = std::ranges::find_if(peers_, isSilent);
  if (found == peers_.end()) return false;
  peerDel(**found, "it sent no hello, and others connected");
  return true;
}

size_t AttrLogServer::silentPeers() const {
  return static_cast<size_t>(std::ranges::count_if(peers_, isSilent));
}

// An agent without readers is not woken.
void AttrLogServer::handlePollTimer() {
  const bool isMore = Mox::NboAttrLog::FlowOut::giveBack(keysGivenBack);
  if (isMore || !peers_.empty()) {
    pollTimer_.timeMinIs(Mox::now() + (isMore ? giveBackInterval : pollInterval));
  }
  const Seconds now = Mox::now();
  for (const auto& peer : std::vector(peers_)) {
    if (peer->isTooSlow()) {
      peerDel(*peer, fmt::format("it took less than 64 KiB/s for {} s", peer->stallTimeout()));
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
