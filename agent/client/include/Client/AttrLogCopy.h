// Live copies of what an agent serves: configuration, status and state of each of its interfaces,
// and those of their intakes. A store of an agent's state serves the same.
//
// Copies outlive connections: the state that a new connection brings is compared with the copies,
// so that their watchers are notified of the differences only. The host's loop moves the bytes;
// handlers are called from it, and the copy must outlive those calls.
//
//   AttrLogCopy copy(loop.io(), path, {.onCurrent = [&] { loop.stop(); }});
//   copy.connect();  // throws ConnectError with the reason and a remedy
//   loop.run();
//   copy.interfaces().at("eth0").status->group();
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Intake/IntakeConfig.h>
#include <Intake/IntakeProcess.h>
#include <Intake/IntakeStatus.h>
#include <Local/Descriptor.h>
#include <Local/IoContext.h>
#include <Local/LocalSocket.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceState.h>
#include <Report/LoopState.h>
#include <Report/StoreState.h>

namespace Agent {

class AttrLogCopy {
 public:
  static constexpr const char* storePath = "storeState";  // where a store has its own state

  struct Interface {
    Mox::Ptr<Gmp::Igmp::QuerierConfig> config;
    Mox::Ptr<Gmp::Igmp::QuerierStatus> status;
    // Null when the agent serves none, as all that follow.
    Mox::Ptr<InterfaceState> state = {};
    Mox::Ptr<IntakeConfig> intake = {};
    Mox::Ptr<IntakeStatus> intakeStatus = {};
    Mox::Ptr<IntakeProcessConfig> process = {};  // of all interfaces
    // The values that the agent's command line and files give: settings that have others were set
    // at run time.
    Mox::Ptr<Gmp::Igmp::QuerierConfig> configuredConfig = {};
    Mox::Ptr<IntakeConfig> configuredIntakeConfig = {};
    Mox::Ptr<IntakeProcessConfig> configuredProcess = {};
    bool configurable = false;  // values written into this configuration are sent to the agent
  };
  using Interfaces = std::map<std::string, Interface>;

  enum class End {
    lost,           // the agent closed the connection
    refused,        // the agent refused it and gave a reason
    protocolError,  // the received bytes are not an attribute log of this version
  };
  struct Handlers {
    // The copies are complete: they have everything that existed when the connection was made.
    std::function<void()> onCurrent = {};
    // Entries of the directory have come or gone: interfaces() or what they have is not the same.
    std::function<void()> onEntries = {};
    // Bytes were received, and the changes in them are made in the copies.
    std::function<void()> onInput = {};
    // The agent has acted on everything written before the question, and the copies have the
    // results.
    std::function<void(Mox::U32 token)> onAnswer = {};
    // The connection ended for the reason in `why`; connect() can be called again.
    std::function<void(End end, const std::string& why)> onEnded = {};
  };

  AttrLogCopy(boost::asio::io_context& io, std::string path, Handlers handlers);
  ~AttrLogCopy();
  AttrLogCopy(const AttrLogCopy&) = delete;
  AttrLogCopy& operator=(const AttrLogCopy&) = delete;

  // Throws ConnectError.
  void connect();
  // To the peer of that socket, which the caller has looked at.
  void connect(Descriptor socket);
  bool isConnected() const { return connection_ != nullptr; }
  const std::string& path() const { return path_; }

  // Once the copies are complete, each interface has a configuration and a status.
  const Interfaces& interfaces() const { return interfaces_; }
  // Null when the server is no store.
  const Mox::Ptr<StoreState>& storeState() const { return storeState_; }
  // Of all interfaces together; each is null when the agent serves none. A store keeps neither.
  const Mox::Ptr<IntakeProcessConfig>& process() const { return process_; }
  const Mox::Ptr<IntakeProcessStatus>& processStatus() const { return processStatus_; }
  const Mox::Ptr<LoopState>& loop() const { return loop_; }
  // Calls f(path, entity) for each copy of what a store keeps, under the path that the server has
  // it at.
  template <class F>
  void forEachEntry(F f) const {
    for (const auto& each : interfaces_) {
      forEachFolder([&](const char* folder, auto entity) {
        if (each.second.*entity) f(folder + each.first, each.second.*entity);
      });
    }
    if (process_) f(std::string(processPath), process_);
    if (configuredProcess_) f(std::string(configuredProcessPath), configuredProcess_);
  }
  // Drops the copies of an interface; only while not connected, since the server would not send
  // them again.
  void forget(const std::string& interface) { interfaces_.erase(interface); }
  // Sends the values that `write` sets in one configuration as one change: the agent checks them
  // together, and sets all of them or none. To be called only while connected.
  void writeTogether(const std::function<void()>& write);
  // Sends the agent a question; onAnswer is called with its token. To be called only while
  // connected.
  void ask(Mox::U32 token);

 private:
  class Connection;

  static constexpr const char* processPath = "intakeProcessConfig";
  static constexpr const char* processStatusPath = "intakeProcessStatus";
  static constexpr const char* loopPath = "loop";
  static constexpr const char* configuredProcessPath = "configuredIntakeProcessConfig";

  // Calls f(folder, member) for each entity of an interface that the directory has.
  template <class F>
  static void forEachFolder(F f) {
    f("config/", &Interface::config);
    f("status/", &Interface::status);
    f("interface/", &Interface::state);
    f("intakeConfig/", &Interface::intake);
    f("intakeStatus/", &Interface::intakeStatus);
    f("configuredConfig/", &Interface::configuredConfig);
    f("configuredIntakeConfig/", &Interface::configuredIntakeConfig);
  }

  Interface& interfaceIs(const std::string& name);
  void ended(End end, const std::string& why);

  boost::asio::io_context& io_;
  const std::string path_;
  const Handlers handlers_;
  Interfaces interfaces_;
  Mox::Ptr<IntakeProcessConfig> process_;
  Mox::Ptr<IntakeProcessConfig> configuredProcess_;
  Mox::Ptr<IntakeProcessStatus> processStatus_;
  Mox::Ptr<LoopState> loop_;
  Mox::Ptr<StoreState> storeState_;
  std::shared_ptr<Connection> connection_;
};

}  // namespace Agent
