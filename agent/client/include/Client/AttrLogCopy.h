// Live copies of what an agent serves: configuration, status and state of each of its interfaces.
//
// Copies outlive connections: the state that a new connection brings is compared with the copies,
// so that their watchers are notified of the differences alone. The host's loop moves the bytes;
// handlers are called from it, and the copy must outlive those calls.
//
//   AttrLogCopy copy(loop.io(), path, {.onCurrent = [&] { loop.stop(); }});
//   copy.connect();  // ConnectError says why not, and what to do
//   loop.run();
//   copy.interfaces().at("eth0").status->group();
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Local/IoContext.h>
#include <Local/LocalSocket.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceState.h>

namespace Agent {

class AttrLogCopy {
 public:
  struct Interface {
    Mox::Ptr<Gmp::Igmp::QuerierConfig> config;
    Mox::Ptr<Gmp::Igmp::QuerierStatus> status;
    Mox::Ptr<InterfaceState> state = {};  // null where the agent has none
    bool configurable = false;  // values written into this configuration are sent to the agent
  };
  using Interfaces = std::map<std::string, Interface>;

  enum class End {
    lost,           // the agent closed the connection
    refused,        // it gave a reason
    protocolError,  // the bytes that came are no attribute log of this version
  };
  struct Handlers {
    // The copies are complete: they have the state that the agent had at the connection.
    std::function<void()> onCurrent = {};
    // Bytes came, and their changes are in the copies.
    std::function<void()> onInput = {};
    // The agent has acted on everything written before the question, and its results are here.
    std::function<void(Mox::U32 token)> onAnswer = {};
    // The connection is over, for the reason in `why`. It can connect again.
    std::function<void(End end, const std::string& why)> onEnded = {};
  };

  AttrLogCopy(boost::asio::io_context& io, std::string path, Handlers handlers);
  ~AttrLogCopy();
  AttrLogCopy(const AttrLogCopy&) = delete;
  AttrLogCopy& operator=(const AttrLogCopy&) = delete;

  // Throws ConnectError.
  void connect();
  bool isConnected() const { return connection_ != nullptr; }
  const std::string& path() const { return path_; }

  // Each has configuration and status, once the copies are complete.
  const Interfaces& interfaces() const { return interfaces_; }
  // Sends the values that `write` sets in one configuration together: the agent judges and sets all
  // of them or none. Only while connected.
  void writeTogether(const std::function<void()>& write);
  // Asks the agent for an answer; only while connected.
  void ask(Mox::U32 token);

 private:
  class Connection;

  void ended(End end, const std::string& why);

  boost::asio::io_context& io_;
  const std::string path_;
  const Handlers handlers_;
  Interfaces interfaces_;
  std::shared_ptr<Connection> connection_;
};

}  // namespace Agent
