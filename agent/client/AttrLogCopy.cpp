#include <Client/AttrLogCopy.h>

#include <set>
#include <string_view>
#include <utility>

#include <Local/AgentErrors.h>
#include <Local/LocalConnection.h>
#include <NboAttrLog/Session.h>

namespace Agent {

using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierStatus;
using Mox::NboAttrLog::Rights;
using Mox::NboAttrLog::Session;

namespace {

constexpr std::string_view configFolder = "config/";
constexpr std::string_view statusFolder = "status/";
constexpr std::string_view stateFolder = "interface/";
constexpr std::string_view intakeFolder = "intakeConfig/";
constexpr std::string_view intakeStatusFolder = "intakeStatus/";
constexpr std::string_view processPath = "intakeProcessConfig";

// The copies of an earlier connection stay, so that watchers are notified of differences only.
template <class E>
Mox::Ptr<Mox::EntityBase> keptOrNew(Mox::Ptr<E>& copy, const std::string& name) {
  if (!copy) copy = Mox::makePtr<E>(Mox::Name(name));
  return copy;
}

}  // namespace

class AttrLogCopy::Connection final : public LocalConnection, private Mox::NboAttrLog::SessionHost {
 public:
  Connection(AttrLogCopy& owner, Descriptor socket)
      : LocalConnection(owner.io_, std::move(socket)), owner_(owner) {}

  void ask(Mox::U32 token) { session_.ask(token); }
  void writeTogether(const std::function<void()>& write) { session_.writeTogether(write); }

 private:
  void handleInput(std::string_view bytes) override;
  void handleInputEnd() override { end(); }
  std::string_view output() override;
  void outputTaken(size_t bytes) override { session_.stream().taken(bytes); }
  void handleOutputEnd() override {}  // the reason may still be among the bytes to be read

  void onOutput() override { outputDue(); }
  Mox::Ptr<Mox::EntityBase> rootIs(std::string_view path, std::string_view typeName,
                                   const Mox::Value& key) override;
  Mox::Ptr<Mox::EntityBase> processIs();
  void rootDel(std::string_view path) override;
  void onCurrent() override;
  void onAnswer(Mox::U32 token) override {
    if (owner_.handlers_.onAnswer) owner_.handlers_.onAnswer(token);
  }

  void end();

  AttrLogCopy& owner_;
  Session session_{*this, {.name = "igmpq", .peerName = "agent"}};
  std::set<std::string> named_;  // interfaces that the agent has
};

void AttrLogCopy::Connection::handleInput(std::string_view bytes) {
  const bool goesOn =
      session_.input({reinterpret_cast<const Mox::U8*>(bytes.data()), bytes.size()});
  if (!isOpen()) return;
  if (owner_.handlers_.onInput) owner_.handlers_.onInput();
  if (goesOn || !isOpen()) return;
  sendOnce();  // the agent may want to know why
  end();
}

std::string_view AttrLogCopy::Connection::output() {
  session_.drain();
  const auto pending = session_.stream().pending();
  return {reinterpret_cast<const char*>(pending.data()), pending.size()};
}

void AttrLogCopy::Connection::end() {
  if (!session_.refusal().empty()) return owner_.ended(End::refused, session_.refusal());
  if (!session_.fault().empty()) {
    return owner_.ended(End::protocolError, notUnderstoodText(owner_.path_, session_.fault()));
  }
  owner_.ended(End::lost, agentGoneText());
}

Mox::Ptr<Mox::EntityBase> AttrLogCopy::Connection::rootIs(std::string_view path,
                                                          std::string_view typeName,
                                                          const Mox::Value&) {
  if (path == processPath && typeName == IntakeProcessConfig::entityTypeName) return processIs();
  const auto is = [&](std::string_view folder, std::string_view type) {
    return path.starts_with(folder) && typeName == type;
  };
  const bool config = is(configFolder, QuerierConfig::entityTypeName);
  const bool status = is(statusFolder, QuerierStatus::entityTypeName);
  const bool state = is(stateFolder, InterfaceState::entityTypeName);
  const bool intake = is(intakeFolder, IntakeConfig::entityTypeName);
  const bool intakeStatus = is(intakeStatusFolder, IntakeStatus::entityTypeName);
  if (!config && !status && !state && !intake && !intakeStatus) return {};
  const std::string name(path.substr(path.find('/') + 1));
  named_.insert(name);
  Interface& interface = owner_.interfaces_[name];
  if (!interface.config) interface.config = Gmp::Igmp::querierConfigFactory(name);
  if (!interface.status) interface.status = Gmp::Igmp::querierStatusFactory();
  interface.configurable = session_.ownRights() == Rights::configure;
  interface.process = owner_.process_;
  if (state) return keptOrNew(interface.state, name);
  if (intake) return keptOrNew(interface.intake, name);
  if (intakeStatus) return keptOrNew(interface.intakeStatus, name);
  if (config) return interface.config;
  return interface.status;
}

Mox::Ptr<Mox::EntityBase> AttrLogCopy::Connection::processIs() {
  if (!owner_.process_) owner_.process_ = Mox::makePtr<IntakeProcessConfig>();
  for (auto& [name, interface] : owner_.interfaces_) interface.process = owner_.process_;
  return owner_.process_;
}

void AttrLogCopy::Connection::rootDel(std::string_view path) {
  const std::string name(path.substr(path.find('/') + 1));
  const auto interface = owner_.interfaces_.find(name);
  if (interface == owner_.interfaces_.end()) return;
  if (path.starts_with(stateFolder)) interface->second.state = nullptr;
  if (path.starts_with(intakeFolder)) interface->second.intake = nullptr;
  if (path.starts_with(intakeStatusFolder)) interface->second.intakeStatus = nullptr;
  if (!path.starts_with(configFolder) && !path.starts_with(statusFolder)) return;
  named_.erase(name);
  owner_.interfaces_.erase(interface);
}

void AttrLogCopy::Connection::onCurrent() {
  std::erase_if(owner_.interfaces_,
                [&](const auto& interface) { return !named_.contains(interface.first); });
  if (owner_.handlers_.onCurrent) owner_.handlers_.onCurrent();
}

AttrLogCopy::AttrLogCopy(boost::asio::io_context& io, std::string path, Handlers handlers)
    : io_(io), path_(std::move(path)), handlers_(std::move(handlers)) {}

AttrLogCopy::~AttrLogCopy() {
  if (connection_) connection_->close();
}

void AttrLogCopy::connect() {
  connection_ = std::make_shared<Connection>(*this, connectToAgent(path_));
  connection_->start();
}

void AttrLogCopy::ask(Mox::U32 token) { connection_->ask(token); }

void AttrLogCopy::writeTogether(const std::function<void()>& write) {
  connection_->writeTogether(write);
}

void AttrLogCopy::ended(End end, const std::string& why) {
  std::exchange(connection_, nullptr)->close();
  if (handlers_.onEnded) handlers_.onEnded(end, why);
}

}  // namespace Agent
