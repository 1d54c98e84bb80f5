#include <Server/AttrLogServer.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <NboAttrLog/Session.h>
#include <NboAttrLog/SocketInSm.h>
#include <NboAttrLog/SocketOutSm.h>

#include <AgentTestSupport/TempFolder.h>
#include <boost/asio/io_context.hpp>

namespace Agent {
namespace {

using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierStatus;
using Mox::NboAttrLog::Access;
using Mox::NboAttrLog::Moved;
using Mox::NboAttrLog::Rights;
using testing::HasSubstr;

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
    while ((moved_ = in_.handleReadable()) == Moved::all) {
    }
  }
  // One part of the bytes that are there.
  void takeOnce() { moved_ = in_.handleReadable(); }
  // Values that are written from here until the next step are sent in one frame.
  void gather() { session_.ask(1); }
  void send(const std::string& bytes) { ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
  bool ended() const { return moved_ == Moved::ended; }
  bool current() const { return current_; }
  const std::string& refusal() const { return session_.refusal(); }
  Rights rights() const { return session_.ownRights(); }
  const Mox::Ptr<QuerierConfig>& config() const { return config_; }
  const Mox::Ptr<QuerierStatus>& status() const { return status_; }

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
  Moved moved_ = Moved::blocked;
  const Mox::Ptr<QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("eth0");
  const Mox::Ptr<QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
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
    server_ = std::make_unique<AttrLogServer>(
        io_, AttrLogServer::Setup{.path = path_, .stallTimeout = 30.0}, wheel_,
        [this] { ++turns_; });
    server_->directory().entryIs("config/eth0", config_, Access::configurable);
    server_->directory().entryIs("status/eth0", status_, Access::readOnly);
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
  std::string logged_;
  int turns_ = 0;
  boost::asio::io_context io_;
  Mox::Ptr<Obel::TimerWheel> wheel_;
  const Mox::Ptr<QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("eth0");
  const Mox::Ptr<QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  std::unique_ptr<AttrLogServer> server_;
};

TEST_F(AttrLogServerTest, socketIsForTheUserAndTheGroupOnly) {
  struct stat file {};
  ASSERT_EQ(stat(path_.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0660u);
}

TEST_F(AttrLogServerTest, readerGetsTheWholeStateThenChanges) {
  status_->groupIs(Ilvo::IpAddr(0xef010101))->sourceIs(Ilvo::IpAddr(0x0a000001));
  Reader reader(path_);
  settle({&reader});
  EXPECT_TRUE(reader.current());
  ASSERT_NE(reader.status()->group(Ilvo::IpAddr(0xef010101)), nullptr);
  EXPECT_EQ(reader.status()->group(Ilvo::IpAddr(0xef010101))->source().size(), 1u);
  status_->v2ReportReceivedInc(7);
  settle({&reader});
  EXPECT_EQ(reader.status()->v2ReportReceived(), 7u);
}

TEST_F(AttrLogServerTest, sameUserCanConfigure) {
  Reader writer(path_);
  Reader other(path_);
  settle({&writer, &other});
  ASSERT_EQ(writer.rights(), Rights::configure);
  writer.config()->robustnessIs(4);
  settle({&writer, &other});
  EXPECT_EQ(config_->robustness(), 4u);
  EXPECT_EQ(other.config()->robustness(), 4u);
  EXPECT_GT(turns_, 0);
}

TEST_F(AttrLogServerTest, valueThatWouldSpinATimerIsRefusedWithTheRange) {
  Reader writer(path_);
  settle({&writer});
  writer.config()->queryIntervalIs(0.0);
  settle({&writer});
  EXPECT_EQ(config_->queryInterval(), 125.0);
  EXPECT_TRUE(writer.ended());
  EXPECT_EQ(writer.refusal(), "queryInterval 0: must be from 1 to 31744 (RFC 3376 8.2)");
  EXPECT_EQ(server_->peers(), 0u);
  EXPECT_THAT(logged_, HasSubstr("from the attribute log: queryInterval 0: must be"));
}

TEST_F(AttrLogServerTest, valueThatContradictsTheOthersInForceIsRefused) {
  Reader writer(path_);
  settle({&writer});
  writer.config()->queryResponseIntervalIs(125.0);
  settle({&writer});
  EXPECT_EQ(config_->queryResponseInterval(), 10.0);
  EXPECT_EQ(writer.refusal(),
            "queryResponseInterval 125: must be less than the query interval, 125 seconds "
            "(RFC 3376 8.3)");
}

TEST_F(AttrLogServerTest, valuesOfOneFrameAreJudgedTogether) {
  Reader writer(path_);
  settle({&writer});
  writer.gather();
  writer.config()->queryResponseIntervalIs(2.0);
  writer.config()->queryIntervalIs(5.0);  // sent before the other one
  settle({&writer});
  EXPECT_EQ(writer.refusal(), "");
  EXPECT_EQ(config_->queryInterval(), 5.0);
  EXPECT_EQ(config_->queryResponseInterval(), 2.0);
}

TEST_F(AttrLogServerTest, valuesOfOneFrameThatContradictEachOtherAreAllRefused) {
  Reader writer(path_);
  settle({&writer});
  writer.gather();
  writer.config()->robustnessIs(5);
  writer.config()->queryIntervalIs(20.0);
  writer.config()->queryResponseIntervalIs(20.0);
  settle({&writer});
  EXPECT_THAT(writer.refusal(), HasSubstr("queryResponseInterval 20: must be less than"));
  EXPECT_EQ(config_->robustness(), 2u);
  EXPECT_EQ(config_->queryInterval(), 125.0);
}

TEST_F(AttrLogServerTest, writersThatDoNotKnowOfEachOtherCannotContradictEachOther) {
  Reader first(path_);
  Reader second(path_);
  settle({&first, &second});
  first.config()->queryIntervalIs(15.0);           // more than the response interval, 10
  second.config()->queryResponseIntervalIs(20.0);  // less than the query interval of its copy, 125
  settle({&first, &second});
  EXPECT_EQ(server_->peers(), 1u);
  EXPECT_LT(config_->queryResponseInterval(), config_->queryInterval());
}

TEST_F(AttrLogServerTest, peerWithoutAFreeDescriptorIsAcceptedWhenThereIsOne) {
  Reader reader(path_);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const int next = dup(0);  // the number that the server's end would get
  ASSERT_GE(next, 0);
  ::close(next);
  const rlimit none{static_cast<rlim_t>(next), before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  settle({});
  EXPECT_EQ(server_->peers(), 0u);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  advance(2.0);
  settle({&reader});
  EXPECT_TRUE(reader.current());
}

TEST_F(AttrLogServerTest, garbageEndsThatConnectionOnly) {
  Reader good(path_);
  Reader bad(path_);
  bad.send(std::string("\xff\xff and more", 11));
  settle({&good});
  EXPECT_EQ(server_->peers(), 1u);
  EXPECT_THAT(logged_, HasSubstr("a frame of an impossible length"));
  status_->joinsInc(1);
  settle({&good});
  EXPECT_EQ(good.status()->joins(), 1u);
}

TEST_F(AttrLogServerTest, readerThatGoesIsForgottenWithoutAMessage) {
  {
    Reader reader(path_);
    settle({&reader});
    EXPECT_EQ(server_->peers(), 1u);
  }
  settle({});
  EXPECT_EQ(server_->peers(), 0u);
  EXPECT_EQ(logged_, "");
  EXPECT_EQ(server_->monitor()->attrLogSockFd(), -1);
}

TEST_F(AttrLogServerTest, peerThatSendsNoHelloIsDisconnected) {
  Reader silent(path_);
  settle({});
  advance(12.0);
  EXPECT_EQ(server_->peers(), 0u);
  EXPECT_THAT(logged_, HasSubstr("it sent no hello"));
}

// More than the socket and the buffer before it can hold, to a reader that has stopped reading.
class StalledReaderTest : public AttrLogServerTest {
 protected:
  StalledReaderTest() {
    settle({&stalled_, &quick_});
    for (Mox::U32 group = 0; group < 20000; ++group) {
      status_->groupIs(Ilvo::IpAddr(0xe8000000u + group));
    }
    for (int round = 0; round < 200; ++round) settle({&quick_});
  }
  Reader stalled_{path_};
  Reader quick_{path_};
};

TEST_F(StalledReaderTest, monitorWatchesTheCongestedSocket) {
  advance(1.0);
  EXPECT_EQ(quick_.status()->group().size(), 20000u);
  bool clogged = false;
  for (int question = 0; question < 10; ++question) {
    clogged = server_->monitor()->isAttrLogClogged() || clogged;
  }
  EXPECT_TRUE(clogged);
}

// A socket that flows again says nothing about the one that does not.
TEST_F(AttrLogServerTest, monitorTurnsToAnotherSocketWhenTheOneItWatchedFlowsAgain) {
  Reader first(path_);
  settle({&first});
  advance(1.0);
  const int firstFd = server_->monitor()->attrLogSockFd();
  Reader second(path_);
  settle({&first, &second});
  for (Mox::U32 group = 0; group < 20000; ++group) {
    status_->groupIs(Ilvo::IpAddr(0xe8000000u + group));
  }
  for (int round = 0; round < 200; ++round) settle({});  // neither reads
  const int watched = server_->monitor()->attrLogSockFd();
  Reader& quick = watched == firstFd ? first : second;
  // It has taken everything when the socket flows again, and time has not moved since.
  for (int round = 0; round < 200; ++round) settle({&quick});
  EXPECT_NE(server_->monitor()->attrLogSockFd(), watched);
  EXPECT_GT(server_->monitor()->getAttrLogKernBufferUsage(),
            server_->monitor()->attrLogKernBufferThreshold());
}

TEST_F(StalledReaderTest, stalledReaderIsDisconnectedAndTheLogFlowsAgain) {
  advance(29.0);
  EXPECT_EQ(server_->peers(), 2u);
  advance(4.0);
  EXPECT_EQ(server_->peers(), 1u);
  EXPECT_THAT(logged_, HasSubstr("it took nothing for 30 s"));
  bool clogged = false;
  for (int question = 0; question < 20; ++question) {
    clogged = server_->monitor()->isAttrLogClogged() || clogged;
  }
  EXPECT_FALSE(clogged);
}

TEST_F(StalledReaderTest, slowReaderIsKeptForAsLongAsItTakesSomething) {
  for (int second = 0; second < 40; ++second) {
    stalled_.takeOnce();
    advance(1.0);
  }
  EXPECT_EQ(server_->peers(), 2u);
  EXPECT_EQ(logged_, "");
}

// At each poll at least as many bytes wait as at the one before, but all of them are new.
TEST_F(AttrLogServerTest, readerThatTakesEverythingIsKeptHoweverMuchIsAdded) {
  Reader reader(path_);
  settle({&reader});
  Mox::U32 group = 0xe8000000u;
  int queued = 0;
  for (Mox::U32 second = 1; second <= 40; ++second) {
    for (Mox::U32 added = 0; added < 10 * second; ++added) status_->groupIs(Ilvo::IpAddr(group++));
    advance(1.0);
    EXPECT_GE(server_->monitor()->getAttrLogKernBufferUsage(), queued);
    queued = server_->monitor()->getAttrLogKernBufferUsage();
    settle({&reader});
  }
  EXPECT_EQ(server_->peers(), 1u);
  EXPECT_EQ(logged_, "");
}

TEST_F(StalledReaderTest, readerThatGoesOnGetsTheStateOfThatTime) {
  for (Mox::U32 group = 0; group < 10000; ++group) {
    status_->groupDel(Ilvo::IpAddr(0xe8000000u + group));
  }
  for (int round = 0; round < 200; ++round) settle({&stalled_, &quick_});
  EXPECT_EQ(stalled_.status()->group().size(), 10000u);
  EXPECT_EQ(quick_.status()->group().size(), 10000u);
}

TEST_F(AttrLogServerTest, secondAgentGetsTheAdviceToChooseAnotherPath) {
  EXPECT_THAT([&] { serve(); },
              testing::ThrowsMessage<std::runtime_error>(
                  "cannot serve the attribute log at " + path_ +
                  ": another agent serves there; choose another path with --socket"));
}

TEST_F(AttrLogServerTest, socketLeftBehindByAKilledAgentIsReplaced) {
  server_.reset();
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  ::close(fd);
  serve();
  Reader reader(path_);
  settle({&reader});
  EXPECT_TRUE(reader.current());
}

TEST_F(AttrLogServerTest, socketIsRemovedWithTheAgent) {
  server_.reset();
  EXPECT_FALSE(std::filesystem::exists(path_));
}

}  // namespace
}  // namespace Agent
