#include <Client/AttrLogCopy.h>

#include <cstring>
#include <set>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include <Local/LocalConnect.h>
#include <NboAttrLog/Session.h>
#include <NboAttrLog/SocketInSm.h>
#include <NboAttrLog/SocketOutSm.h>
#include <boost/asio/local/stream_protocol.hpp>

namespace Agent {

using boost::asio::local::stream_protocol;
using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierStatus;
using Mox::NboAttrLog::Moved;
using Mox::NboAttrLog::Rights;
using Mox::NboAttrLog::Session;

namespace {

constexpr std::string_view configFolder = "config/";
constexpr std::string_view statusFolder = "status/";
constexpr std::string_view stateFolder = "interface/";

}  // namespace

class AttrLogCopy::Connection final : public std::enable_shared_from_this<Connection>,
                                      private Mox::NboAttrLog::SessionHost {
 public:
  Connection(AttrLogCopy& owner, stream_protocol::socket socket)
      : owner_(owner),
        socket_(std::move(socket)),
        out_(socket_.native_handle(), session_.stream()),
        in_(socket_.native_handle(), session_) {}

  void start() {
    write();
    waitReadable();
  }
  void close() {
    open_ = false;
    boost::system::error_code ignored;
    socket_.close(ignored);
  }
  void ask(Mox::U32 token) { session_.ask(token); }
  void writeTogether(const std::function<void()>& write) { session_.writeTogether(write); }

 private:
  void onOutput() override;
  Mox::Ptr<Mox::EntityBase> rootIs(std::string_view path, std::string_view typeName,
                                   const Mox::Value& key) override;
  void rootDel(std::string_view path) override;
  void onCurrent() override;
  void onAnswer(Mox::U32 token) override {
    if (owner_.handlers_.onAnswer) owner_.handlers_.onAnswer(token);
  }

  void waitReadable();
  void waitWritable();
  void read();
  void write();
  void end();

  AttrLogCopy& owner_;
  stream_protocol::socket socket_;
  Session session_{*this, {.name = "igmpq", .peerName = "agent"}};
  Mox::NboAttrLog::StreamSocketOutSm out_;
  Mox::NboAttrLog::SocketInSm in_;
  std::set<std::string> named_;  // interfaces that the agent has
  bool open_ = true;
  bool writeDue_ = false;
};

// Within a call of the session it is not asked for more; afterwards it is.
void AttrLogCopy::Connection::onOutput() {
  if (!open_ || std::exchange(writeDue_, true)) return;
  waitWritable();
}

void AttrLogCopy::Connection::waitReadable() {
  socket_.async_wait(stream_protocol::socket::wait_read, [self = weak_from_this()](auto failed) {
    const auto connection = self.lock();
    if (connection && !failed && connection->open_) connection->read();
  });
}

void AttrLogCopy::Connection::waitWritable() {
  socket_.async_wait(stream_protocol::socket::wait_write, [self = weak_from_this()](auto failed) {
    const auto connection = self.lock();
    if (connection && !failed && connection->open_) connection->write();
  });
}

void AttrLogCopy::Connection::read() {
  const auto alive = shared_from_this();
  const Moved moved = in_.handleReadable();
  if (!open_) return;
  if (owner_.handlers_.onInput) owner_.handlers_.onInput();
  if (!open_) return;
  if (moved != Moved::ended) return waitReadable();
  out_.handleWritable();  // the agent may want to know why
  end();
}

// Where the agent takes nothing any more, what it said before is still to be read.
void AttrLogCopy::Connection::write() {
  writeDue_ = false;
  session_.drain();
  if (out_.handleWritable() == Moved::ended) return;
  if (session_.stream().pending().empty() && session_.allSent()) return;
  if (session_.greeted() || !session_.stream().pending().empty()) onOutput();
}

void AttrLogCopy::Connection::end() {
  if (!session_.refusal().empty()) return owner_.ended(End::refused, session_.refusal());
  if (!session_.fault().empty()) {
    return owner_.ended(End::strange,
                        fmt::format("what serves {} is not understood: {}; have the agent and this "
                                    "command from the same version of igmpq",
                                    owner_.path_, session_.fault()));
  }
  owner_.ended(End::lost, "the agent has gone");
}

Mox::Ptr<Mox::EntityBase> AttrLogCopy::Connection::rootIs(std::string_view path,
                                                          std::string_view typeName,
                                                          const Mox::Value&) {
  const bool config = path.starts_with(configFolder) && typeName == QuerierConfig::entityTypeName;
  const bool status = path.starts_with(statusFolder) && typeName == QuerierStatus::entityTypeName;
  const bool state = path.starts_with(stateFolder) && typeName == InterfaceState::entityTypeName;
  if (!config && !status && !state) return {};
  const std::string name(path.substr(path.find('/') + 1));
  named_.insert(name);
  Interface& interface = owner_.interfaces_[name];
  if (!interface.config) interface.config = Gmp::Igmp::querierConfigFactory(name);
  if (!interface.status) interface.status = Gmp::Igmp::querierStatusFactory();
  interface.configurable = session_.ownRights() == Rights::configure;
  if (state && !interface.state) interface.state = Mox::makePtr<InterfaceState>(Mox::Name(name));
  if (state) return interface.state;
  if (config) return interface.config;
  return interface.status;
}

void AttrLogCopy::Connection::rootDel(std::string_view path) {
  const std::string name(path.substr(path.find('/') + 1));
  const auto interface = owner_.interfaces_.find(name);
  if (interface == owner_.interfaces_.end()) return;
  if (path.starts_with(stateFolder)) interface->second.state = nullptr;
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
  stream_protocol::socket socket(io_);
  const std::string why = connectToAgent(socket, path_);
  if (!why.empty()) throw AttrLogError(why);
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
