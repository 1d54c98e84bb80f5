// The agent's endpoint of the attribute log: a Unix stream socket at which other processes see the
// state of all interfaces and write their configuration.
//
// Who may connect may read. Who has the rights of root or of the agent's own user or group may
// configure; the kernel vouches for who a peer is. Changes are written once the loop has done what
// it was about, so that a burst of them costs one system call a peer. A peer that takes nothing for
// a while is disconnected: it would hold up work that waits for the log to flow.
//
//   AttrLogServer server(io, {.path = "/run/igmpq/attrlog.sock"}, wheel, [&] { ... });
//   server.directory().entryIs("status/eth0", status, Access::readOnly);
//   querier->attrLogSmIs(server.monitor());
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <Local/LocalListener.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/Directory.h>
#include <Obel/TimerReactor.h>
#include <Obel/TimerWheel.h>
#include <boost/asio/io_context.hpp>

namespace Agent {

class AttrLogServer {
 public:
  struct Setup {
    std::string path;
    Mox::Seconds stallTimeout = 30.0;  // for a peer that takes nothing of what waits for it
  };

  // `turn` is called around whatever a peer has changed. Throws std::runtime_error with what to do
  // when it cannot listen there.
  AttrLogServer(boost::asio::io_context& io, Setup setup,
                const Mox::Ptr<const Obel::TimerWheel>& wheel, std::function<void()> turn);
  ~AttrLogServer();
  AttrLogServer(const AttrLogServer&) = delete;
  AttrLogServer& operator=(const AttrLogServer&) = delete;

  Mox::NboAttrLog::Directory& directory() { return directory_; }
  // Says whether the most congested peer's socket is clogged.
  const Mox::Ptr<Gmp::Igmp::GmpAttrLogSm>& monitor() const { return monitor_; }
  size_t peers() const { return peers_.size(); }

 private:
  class Peer;

  void letIn(LocalListener::Socket socket);
  // Looks after stalled peers, once a second.
  void handleCare();
  void watch(Peer& peer);
  void watchMostCongested();
  void peerDel(Peer& peer, const std::string& why);

  boost::asio::io_context& io_;
  const Setup setup_;
  const std::function<void()> turn_;
  Mox::NboAttrLog::Directory directory_;
  const Mox::Ptr<Gmp::Igmp::GmpAttrLogSm> monitor_;
  std::vector<std::shared_ptr<Peer>> peers_;
  LocalListener listener_;
  Obel::TimerReactor<AttrLogServer, &AttrLogServer::handleCare> care_;
};

}  // namespace Agent
