// Live copies of what an agent serves: configuration, status and state of each of its interfaces.
//
// Copies outlive connections: what a new connection brings is compared with what is there, so that
// whoever watches the copies hears of the differences alone. It is the host's loop that moves
// bytes; handlers are called from it, and the copy must outlive those calls.
//
//   AttrLogCopy copy(io, path, {.onCurrent = [&] { io.stop(); }});
//   copy.connect();  // AttrLogError says why not, and what to do
//   io.run();
//   copy.interfaces().at("eth0").status->group();
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceState.h>
#include <boost/asio/io_context.hpp>

namespace Agent {

class AttrLogError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class AttrLogCopy {
 public:
  struct Interface {
    Mox::Ptr<Gmp::Igmp::QuerierConfig> config;
    Mox::Ptr<Gmp::Igmp::QuerierStatus> status;
    Mox::Ptr<InterfaceState> state = {};  // null where the agent tells none
    bool configurable = false;  // what is written into this configuration reaches the agent
  };
  using Interfaces = std::map<std::string, Interface>;

  enum class End {
    lost,     // the agent went away
    refused,  // it gave a reason
    strange,  // what came is no attribute log of this version
  };
  struct Handlers {
    // All that the agent had when it was connected to is here.
    std::function<void()> onCurrent = {};
    // Something came.
    std::function<void()> onInput = {};
    // What was written before the question has been acted on, and what came of that is here.
    std::function<void(Mox::U32 token)> onAnswer = {};
    // The connection is over, why says a sentence. It may connect again.
    std::function<void(End end, const std::string& why)> onEnded = {};
  };

  AttrLogCopy(boost::asio::io_context& io, std::string path, Handlers handlers);
  ~AttrLogCopy();
  AttrLogCopy(const AttrLogCopy&) = delete;
  AttrLogCopy& operator=(const AttrLogCopy&) = delete;

  void connect();
  bool connected() const { return connection_ != nullptr; }
  const std::string& path() const { return path_; }

  // Each has configuration and status, once it is current.
  const Interfaces& interfaces() const { return interfaces_; }
  // Sends the values that `write` sets in one configuration together: the agent judges and sets all
  // of them or none. To be called while connected.
  void writeTogether(const std::function<void()>& write);
  // Has the agent answer; to be called while connected.
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
