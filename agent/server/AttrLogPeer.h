// One process that is connected to the attribute log.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <NboAttrLog/Session.h>
#include <NboAttrLog/SocketInSm.h>
#include <NboAttrLog/SocketOutSm.h>
#include <Server/AttrLogServer.h>

namespace Agent {

class AttrLogServer::Peer final : public std::enable_shared_from_this<Peer>,
                                  private Mox::NboAttrLog::SessionHost {
 public:
  using Socket = LocalListener::Socket;

  Peer(AttrLogServer& server, Socket socket);

  // Begins to read and write. Before, nothing may be pending on it.
  void start();
  // From here on it does nothing, whatever is still pending.
  void close();

  int fd() { return socket_.native_handle(); }
  // "user 1000 (process 4711)"
  const std::string& name() const { return name_; }
  bool greeted() const { return session_.greeted(); }
  Mox::Seconds connectedSince() const { return connectedSince_; }
  // Bytes that the kernel holds for it.
  int queued();
  // Since when it has taken nothing of what waits; `never` when nothing waits or it took something
  // since the last call.
  Mox::Seconds stalledSince();

 private:
  void onOutput() override;
  std::string whyRefused(const Mox::EntityBase& entity,
                         std::span<const Mox::NboAttrLog::Written> values) override;

  void waitReadable();
  void waitWritable();
  void handleReadable();
  void flush();
  void end(const std::string& why);

  AttrLogServer& server_;
  Socket socket_;
  const std::string name_;
  const Mox::Seconds connectedSince_;
  Mox::NboAttrLog::Session session_;
  const Mox::Ptr<Mox::NboAttrLog::StreamSocketOutSm> out_;
  const Mox::Ptr<Mox::NboAttrLog::SocketInSm> in_;
  bool open_ = true;
  bool flushDue_ = false;  // posted, or waiting for the socket
  bool blocked_ = false;   // waiting for the socket
  Mox::U64 takenSeen_ = 0;
  int queuedSeen_ = 0;
  Mox::Seconds since_ = Mox::never;
};

}  // namespace Agent
