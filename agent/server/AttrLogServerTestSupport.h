// For tests: an attribute log server on a real socket, and readers of it in the same process, in
// virtual time.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <NboAttrLog/Session.h>
#include <NboAttrLog/SocketInSm.h>
#include <NboAttrLog/SocketOutSm.h>
#include <Server/AttrLogServer.h>

#include <AgentTestSupport/TempFolder.h>
#include <boost/asio/io_context.hpp>

namespace Agent {

// A reader of the log on a real socket, in the same process.
class Reader final : private Mox::NboAttrLog::SessionHost {
 public:
  explicit Reader(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
  }
  ~Reader() { ::close(fd_); }

  bool connected() const { return connected_; }
  // Sends the bytes that wait and takes those that are there.
  void step() {
    session_.drain();
    out_.handleWritable();
    while ((moved_ = in_.handleReadable()) == Mox::NboAttrLog::Moved::all) {
    }
  }
  // One part of the bytes that are there.
  void takeOnce() { moved_ = in_.handleReadable(); }
  // Values that are written from here until the next step are sent in one frame.
  void gather() { session_.ask(1); }
  void send(const std::string& bytes) { ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
  bool ended() const { return moved_ == Mox::NboAttrLog::Moved::ended; }
  bool current() const { return current_; }
  const std::string& refusal() const { return session_.refusal(); }
  Mox::NboAttrLog::Rights rights() const { return session_.ownRights(); }
  const Mox::Ptr<Gmp::Igmp::QuerierConfig>& config() const { return config_; }
  const Mox::Ptr<Gmp::Igmp::QuerierStatus>& status() const { return status_; }

 private:
  void onOutput() override {}
  void onCurrent() override { current_ = true; }
  Mox::Ptr<Mox::EntityBase> rootIs(std::string_view path, std::string_view,
                                   const Mox::Value&) override {
    if (path == "config/eth0") return config_;
    if (path == "status/eth0") return status_;
    return {};
  }

  const int fd_;
  bool connected_ = false;
  bool current_ = false;
  Mox::NboAttrLog::Moved moved_ = Mox::NboAttrLog::Moved::blocked;
  const Mox::Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("eth0");
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  Mox::NboAttrLog::Session session_{*this, {.name = "reader", .peerName = "agent"}};
  Mox::NboAttrLog::StreamSocketOutSm out_{fd_, session_.stream()};
  Mox::NboAttrLog::SocketInSm in_{fd_, session_};
};

class AttrLogServerTest : public testing::Test {
 protected:
  AttrLogServerTest() {
    Mox::virtualTimeIs(1000.0);
    Mox::eventLogSinkIs([this](const Mox::EventLogEntry& entry) { logged_ += entry.text; });
    wheel_ = Mox::makePtr<Obel::TimerWheel>(Mox::now());
    serve();
  }
  ~AttrLogServerTest() override {
    server_.reset();
    Mox::eventLogSinkIs({});
    Mox::realTimeIs();
  }

  void serve() {
    server_ = std::make_unique<AttrLogServer>(io_, setup_, wheel_, [this] { ++turns_; });
    server_->directory().entryIs("config/eth0", config_, Mox::NboAttrLog::Access::configurable);
    server_->directory().entryIs("status/eth0", status_, Mox::NboAttrLog::Access::readOnly);
  }
  // Again, with what the test has changed in the setup.
  void serveAnew() {
    server_.reset();
    serve();
  }
  // Until nothing is left to do.
  void settle(const std::vector<Reader*>& readers) {
    for (int round = 0; round < 20; ++round) {
      for (Reader* reader : readers) reader->step();
      io_.restart();
      io_.poll();
    }
  }
  void advance(Mox::Seconds seconds) {
    for (Mox::Seconds passed = 0.0; passed < seconds; passed += 1.0) {
      Mox::virtualTimeIs(Mox::now() + 1.0);
      wheel_->turn(Mox::now());
      io_.restart();
      io_.poll();
    }
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/run/attrlog.sock";
  AttrLogServer::Setup setup_{.path = path_, .stallTimeout = 30.0};
  std::string logged_;
  int turns_ = 0;
  boost::asio::io_context io_;
  Mox::Ptr<Obel::TimerWheel> wheel_;
  const Mox::Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("eth0");
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  std::unique_ptr<AttrLogServer> server_;
};

}  // namespace Agent
