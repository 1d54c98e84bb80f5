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

// The copies of an earlier connection stay, so that watchers are notified of differences only.
template <class E, class... Name>
Mox::Ptr<Mox::EntityBase> keptOrNew(Mox::Ptr<E>& copy, Name... name) {
  if (!copy) copy = Mox::makePtr<E>(name...);
  return copy;
}

Mox::Ptr<Mox::EntityBase> keptOrNew(Mox::Ptr<QuerierConfig>& copy, const std::string& name) {
  if (!copy) copy = Gmp::Igmp::querierConfigFactory(name);
  return copy;
}

Mox::Ptr<Mox::EntityBase> keptOrNew(Mox::Ptr<QuerierStatus>& copy, const std::string&) {
  if (!copy) copy = Gmp::Igmp::querierStatusFactory();
  return copy;
}

template <class E>
bool isOf(std::string_view typeName, const Mox::Ptr<E>&) {
  return typeName == E::entityTypeName;
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
  Mox::Ptr<Mox::EntityBase> entityAt(std::string_view path, std::string_view typeName);
  Mox::Ptr<Mox::EntityBase> processIs(Mox::Ptr<IntakeProcessConfig>& copy,
                                      Mox::Ptr<IntakeProcessConfig> Interface::*member);
  void rootDel(std::string_view path) override;
  void onCurrent() override;
  void onAnswer(Mox::U32 token) override {
    if (owner_.handlers_.onAnswer) owner_.handlers_.onAnswer(token);
  }

  void end();

  AttrLogCopy& owner_;
  Session session_{*this, {.name = "igmpq", .peerName = "agent"}};
  std::set<std::string> named_;  // interfaces that the agent has
  bool entriesChanged_ = false;  // since onEntries was called
};

void AttrLogCopy::Connection::handleInput(std::string_view bytes) {
  const bool goesOn =
      session_.input({reinterpret_cast<const Mox::U8*>(bytes.data()), bytes.size()});
  if (!isOpen()) return;
  if (std::exchange(entriesChanged_, false) && owner_.handlers_.onEntries) {
    owner_.handlers_.onEntries();
  }
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
  Mox::Ptr<Mox::EntityBase> entity = entityAt(path, typeName);
  if (entity) entriesChanged_ = true;
  return entity;
}

Mox::Ptr<Mox::EntityBase> AttrLogCopy::Connection::entityAt(std::string_view path,
                                                            std::string_view typeName) {
  const auto isAt = [&](const char* known, const auto& copy) {
    return path == known && isOf(typeName, copy);
  };
  if (isAt(storePath, owner_.storeState_)) return keptOrNew(owner_.storeState_);
  if (isAt(processStatusPath, owner_.processStatus_)) return keptOrNew(owner_.processStatus_);
  if (isAt(loopPath, owner_.loop_)) return keptOrNew(owner_.loop_);
  if (isAt(processPath, owner_.process_)) return processIs(owner_.process_, &Interface::process);
  if (isAt(configuredProcessPath, owner_.configuredProcess_)) {
    return processIs(owner_.configuredProcess_, &Interface::configuredProcess);
  }
  Mox::Ptr<Mox::EntityBase> entity;
  forEachFolder([&](std::string_view folder, auto of) {
    if (!path.starts_with(folder) || !isOf(typeName, Interface().*of)) return;
    const std::string name(path.substr(folder.size()));
    Interface& interface = owner_.interfaceIs(name);
    interface.configurable = session_.ownRights() == Rights::configure;
    named_.insert(name);
    entity = keptOrNew(interface.*of, name);
  });
  return entity;
}

Mox::Ptr<Mox::EntityBase> AttrLogCopy::Connection::processIs(
    Mox::Ptr<IntakeProcessConfig>& copy, Mox::Ptr<IntakeProcessConfig> Interface::*member) {
  keptOrNew(copy);
  for (auto& [name, interface] : owner_.interfaces_) interface.*member = copy;
  return copy;
}

void AttrLogCopy::Connection::rootDel(std::string_view path) {
  const std::string name(path.substr(path.find('/') + 1));
  const auto found = owner_.interfaces_.find(name);
  if (found == owner_.interfaces_.end()) return;
  entriesChanged_ = true;
  Interface& interface = found->second;
  forEachFolder([&](std::string_view folder, auto of) {
    if (path.starts_with(folder)) interface.*of = nullptr;
  });
  if (interface.config && interface.status) return;
  named_.erase(name);
  owner_.interfaces_.erase(found);
}

void AttrLogCopy::Connection::onCurrent() {
  const size_t gone = std::erase_if(
      owner_.interfaces_, [&](const auto& interface) { return !named_.contains(interface.first); });
  if (gone != 0) entriesChanged_ = true;
  if (owner_.handlers_.onCurrent) owner_.handlers_.onCurrent();
}

// Each has a configuration and a status from the first entry on, whichever that is.
AttrLogCopy::Interface& AttrLogCopy::interfaceIs(const std::string& name) {
  Interface& interface = interfaces_[name];
  keptOrNew(interface.config, name);
  keptOrNew(interface.status, name);
  interface.process = process_;
  interface.configuredProcess = configuredProcess_;
  return interface;
}

AttrLogCopy::AttrLogCopy(boost::asio::io_context& io, std::string path, Handlers handlers)
    : io_(io), path_(std::move(path)), handlers_(std::move(handlers)) {}

AttrLogCopy::~AttrLogCopy() {
  if (connection_) connection_->close();
}

void AttrLogCopy::connect() { connect(connectToAgent(path_)); }

void AttrLogCopy::connect(Descriptor socket) {
  connection_ = std::make_shared<Connection>(*this, std::move(socket));
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
