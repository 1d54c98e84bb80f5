// The agent's end of the attribute log: a Unix stream socket at which other processes see the state
// of all interfaces and write their configuration.
//
// The kernel reports the identity of a peer, which decides about its rights; one without rights is
// refused. Changes are sent after the current handler of the loop, so that a burst of them costs
// one system call for each peer. A peer that takes too little of what waits for it is disconnected:
// it would delay the work that waits until the log is not congested.
//
//   AttrLogServer server(io, {.path = "/run/igmpq/attrlog.sock"}, wheel, [&] { ... });
//   server.directory().entryIs("status/eth0", status, Access::readOnly);
//   querier->attrLogSmIs(server.monitor());
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <Local/IoContext.h>
#include <Local/LocalListener.h>
#include <Local/LocalPeer.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/Directory.h>
#include <Obel/TimerReactor.h>
#include <Obel/TimerWheel.h>

namespace Agent {

class AttrLogPeer;

class AttrLogServer {
 public:
  // The most peers that have not sent their hello. When one more connects, or when there are as
  // many readers as there may be, the one that has waited for the longest time is disconnected.
  static constexpr size_t mostSilent = 4;

  struct Setup {
    std::string path;
    // A peer in arrears that takes less than 64 KiB/s over this time is disconnected.
    Mox::Seconds stallTimeout = 30.0;
    size_t maxReaders = 64;
    RightsOf rightsOf = peerRights({});
    std::string name = "igmpq run";  // of this side, for the peers' messages
  };

  // `turn` is called before and after a peer changes something. Throws std::runtime_error with the
  // reason and a remedy when it cannot serve that path.
  AttrLogServer(boost::asio::io_context& io, Setup setup,
                const Mox::Ptr<const Obel::TimerWheel>& wheel, std::function<void()> turn);
  ~AttrLogServer();
  AttrLogServer(const AttrLogServer&) = delete;
  AttrLogServer& operator=(const AttrLogServer&) = delete;

  // A socket at another path, for socketIs. Throws std::runtime_error as the constructor does.
  std::unique_ptr<LocalListener> socketAt(const std::string& path);
  // From here on peers connect there; those that are connected stay.
  void socketIs(std::unique_ptr<LocalListener> socket) { socket_ = std::move(socket); }
  // For peers that connect from here on, and the most of them.
  void limitsAre(const RightsOf& rightsOf, Mox::Seconds stallTimeout, size_t maxReaders);

  Mox::NboAttrLog::Directory& directory() { return directory_; }
  const Mox::NboAttrLog::Directory& directory() const { return directory_; }
  // Reports whether the most congested peer's socket is clogged.
  const Mox::Ptr<Gmp::Igmp::GmpAttrLogSm>& monitor() const { return monitor_; }
  size_t peers() const { return peers_.size(); }

 private:
  void accept(Descriptor socket);
  // Sends the reason in the place of the state.
  void refuse(const Descriptor& socket, const std::string& why) const;
  // False when all have sent their hello.
  bool endLongestSilent();
  size_t silentPeers() const;
  // Once a second, disconnects peers that take too little or that have not sent their hello.
  void handlePollTimer();
  void handleBlocked(const AttrLogPeer& peer, bool isBlocked);
  void watchMostCongested();
  void peerDel(const AttrLogPeer& peer, const std::string& why);

  boost::asio::io_context& io_;
  const Mox::Ptr<const Obel::TimerWheel> wheel_;
  Setup setup_;
  const std::function<void()> turn_;
  Mox::NboAttrLog::Directory directory_;
  const Mox::Ptr<Gmp::Igmp::GmpAttrLogSm> monitor_;
  std::vector<std::shared_ptr<AttrLogPeer>> peers_;
  std::unique_ptr<LocalListener> socket_;
  Obel::TimerReactor<AttrLogServer, &AttrLogServer::handlePollTimer> pollTimer_;
};

}  // namespace Agent
