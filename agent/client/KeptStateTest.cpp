#include <Client/KeptState.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Local/MachineIdentity.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <NboAttrLog/Frame.h>
#include <Server/AttrLogServer.h>

#include <AgentTestSupport/OtherIdentity.h>
#include <AgentTestSupport/ServedAgent.h>
#include <AgentTestSupport/TempFolder.h>
#include <AgentTestSupport/TestAddresses.h>
#include <AgentTestSupport/TestSocket.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

namespace Agent {
namespace {

using Mox::NboAttrLog::Access;
using Mox::NboAttrLog::protocolVersion;
using testing::HasSubstr;
using testing::ThrowsMessage;

// A store of a made-up state in the same process. Without time to wait, it still has all the time
// that it needs.
class KeptStateTest : public testing::Test {
 protected:
  KeptStateTest() {
    Mox::eventLogSinkIs([](const Mox::EventLogEntry&) {});
    state_->formatVersionIs(protocolVersion);
    state_->machineIdIs(machineId());
    state_->bootIdIs(bootId());
    state_->completeIs(true);
    state_->lostTimeIs(990.0);
  }
  ~KeptStateTest() override {
    server_.reset();
    Mox::eventLogSinkIs({});
    Mox::realTimeIs();
  }

  Mox::NboAttrLog::Directory& serve() {
    server_.emplace(loop_->io(), AttrLogServer::Setup{.path = path_}, loop_->wheel(), [] {});
    return server_->directory();
  }
  void serveStore() {
    serve().entryIs(AttrLogCopy::storePath, state_, Access::readOnly);
    if (!hasInterface_) return;
    server_->directory().entryIs("status/eth0", status_, Access::readOnly);
    server_->directory().entryIs("config/eth0", config_, Access::readOnly);
  }
  KeptState read() {
    return keptState(*loop_, path_, {.begin = std::chrono::seconds(), .complete = {}});
  }
  auto failure(const std::string& text) { return ThrowsMessage<std::runtime_error>(text); }
  void expectRefused(const std::string& why) {
    serveStore();
    EXPECT_THAT([&] { read(); }, failure("the store at " + path_ + why));
  }
  // Whatever it serves, it sends that.
  void answerWith(const std::string& bytes, bool goes = false) {
    boost::asio::post(loop_->io(), [this, bytes, goes] {
      peer_.emplace(serving_->accepted());
      peer_->send(bytes);
      if (goes) peer_->endOutput();
    });
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/store.sock";
  const std::unique_ptr<EventLoop> loop_ = [] {
    Mox::virtualTimeIs(1000.0);
    return std::make_unique<EventLoop>();
  }();
  const Mox::Ptr<StoreState> state_ = Mox::makePtr<StoreState>();
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  const Mox::Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("eth0");
  bool hasInterface_ = true;
  std::optional<AttrLogServer> server_;
  std::optional<TestSocket> serving_;
  std::optional<TestSocket> peer_;
};

TEST_F(KeptStateTest, hasTheInterfacesOfTheStore) {
  for (Mox::U32 number = 0; number < 5000; ++number) {
    status_->groupIs(Ilvo::IpAddr(0xe8000000u + number));
  }
  config_->robustnessIs(3);
  serveStore();
  const KeptState kept = read();
  EXPECT_EQ(kept.lostTime, 990.0);
  EXPECT_EQ(kept.interfaces.at("eth0").status->group().size(), 5000u);
  EXPECT_EQ(kept.interfaces.at("eth0").config->robustness(), 3u);
}

// While a connection has them, writing into these copies is an error.
TEST_F(KeptStateTest, belongsToTheReaderWhenTheConnectionHasEnded) {
  status_->groupIs(group);
  serveStore();
  const KeptState kept = read();
  EXPECT_EQ(server_->peers(), 0u);
  kept.interfaces.at("eth0").status->group(group)->lastReporterIs(host);
  EXPECT_EQ(kept.interfaces.at("eth0").status->group(group)->lastReporter(), host);
}

TEST_F(KeptStateTest, isEmptyWhereTheStoreHasHadNoAgent) {
  state_->lostTimeIs(0.0);
  state_->completeIs(false);
  hasInterface_ = false;
  serveStore();
  const KeptState kept = read();
  EXPECT_TRUE(kept.interfaces.empty());
  EXPECT_EQ(kept.lostTime, 0.0);
}

// An agent that was killed in its first walk has left what the store received.
TEST_F(KeptStateTest, needNotBeAllThatTheAgentHad) {
  state_->completeIs(false);
  status_->groupIs(group);
  serveStore();
  EXPECT_EQ(read().interfaces.at("eth0").status->group().size(), 1u);
}

// The bytes that the dead agent has sent are still being read.
TEST_F(KeptStateTest, waitsForTheEndOfTheAgentBefore) {
  state_->lostTimeIs(0.0);
  serveStore();
  int rounds = 20;
  std::function<void()> later = [&] {
    if (--rounds > 0) return boost::asio::post(loop_->io(), later);
    status_->groupIs(group);
    state_->lostTimeIs(999.0);
  };
  later();
  const KeptState kept = read();
  EXPECT_EQ(kept.lostTime, 999.0);
  EXPECT_EQ(kept.interfaces.at("eth0").status->group().size(), 1u);
}

TEST_F(KeptStateTest, isNotThatOfAnAgentThatRuns) {
  state_->lostTimeIs(0.0);
  expectRefused(" has an agent that has not ended within 0 s");
}

// There is always more to be read, and so the loop never waits.
TEST_F(KeptStateTest, isNotThatOfAStoreThatSendsWithoutAnEnd) {
  state_->lostTimeIs(0.0);
  serveStore();
  Mox::U32 rounds = 10000;
  std::function<void()> later = [&] {
    if (--rounds == 0) return state_->lostTimeIs(999.0);
    status_->groupIs(Ilvo::IpAddr(0xe8000000u + rounds));
    Mox::virtualTimeIs(Mox::now() + 0.1);
    boost::asio::post(loop_->io(), later);
  };
  later();
  EXPECT_THAT([&] { keptState(*loop_, path_); },
              failure("the store at " + path_ + " has an agent that has not ended within 10 s"));
}

TEST_F(KeptStateTest, isNotThatOfAnotherMachine) {
  state_->machineIdIs("0123456789abcdef0123456789abcdef");
  expectRefused(" keeps the state of another machine");
}

TEST_F(KeptStateTest, isNotThatOfAnotherBoot) {
  state_->bootIdIs("2c5f3d4e-8a6b-4f0e-9d1c-7b8a9e0f1a2b");
  expectRefused(" keeps the state of another boot of this machine");
}

TEST_F(KeptStateTest, isNotOfAnotherFormat) {
  state_->formatVersionIs(protocolVersion + 1);
  expectRefused(" keeps the format " + std::to_string(protocolVersion + 1) +
                " of the attribute log, not " + std::to_string(protocolVersion));
}

TEST_F(KeptStateTest, withoutAStoreItSaysHowToStartOne) {
  EXPECT_THAT([&] { read(); },
              ThrowsMessage<ConnectError>(
                  "no store is running: nobody serves " + path_ +
                  "; start one with `systemctl start igmpq-store` or `igmpq store`"));
}

TEST_F(KeptStateTest, isReadFromAStoreThatStartsAMomentLater) {
  boost::asio::post(loop_->io(), [this] { serveStore(); });
  const KeptState kept = keptState(*loop_, path_, {.begin = std::chrono::hours(1), .complete = {}});
  EXPECT_EQ(kept.interfaces.size(), 1u);
}

TEST_F(KeptStateTest, isNotWhatAnAgentServes) {
  serve().entryIs("status/eth0", status_, Access::readOnly);
  EXPECT_THAT([&] { read(); }, failure("what serves " + path_ + " is no store"));
}

TEST_F(KeptStateTest, isNotOfAStoreOfAnotherUser) {
  std::filesystem::permissions(folder_.path(), std::filesystem::perms::all);
  std::optional<OtherIdentity> other(std::in_place, nobodyId, nobodyId, std::vector<gid_t>());
  EXPECT_TRUE(other->isTaken());
  serving_.emplace(TestSocket::servingAt(path_));
  other.reset();
  EXPECT_THAT([&] { read(); },
              failure("the store at " + path_ + " runs as user " + std::to_string(nobodyId) +
                      ": it must run as root or as the user of this agent"));
}

TEST_F(KeptStateTest, isNotWaitedForWhereTheStoreHangs) {
  serving_.emplace(TestSocket::servingAt(path_));
  EXPECT_THAT([&] { read(); }, failure("the store at " + path_ + " did not begin within 0 s"));
}

TEST_F(KeptStateTest, isNotWaitedForAfterASignal) {
  serving_.emplace(TestSocket::servingAt(path_));
  loop_->stop();
  EXPECT_THAT([&] { read(); }, failure("a signal came first"));
}

TEST_F(KeptStateTest, isNotGarbage) {
  serving_.emplace(TestSocket::servingAt(path_));
  answerWith(otherProtocol);
  EXPECT_THAT([&] { read(); }, ThrowsMessage<std::runtime_error>(HasSubstr("is not understood")));
}

TEST_F(KeptStateTest, isNotThatOfAStoreThatGoes) {
  serving_.emplace(TestSocket::servingAt(path_));
  answerWith("", true);
  EXPECT_THAT([&] { read(); }, failure("the store at " + path_ + " has gone"));
}

}  // namespace
}  // namespace Agent
