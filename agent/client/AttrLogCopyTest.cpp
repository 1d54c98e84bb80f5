#include <Client/AttrLogCopy.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AttrLogCopyTestSupport.h"

#include <Client/CopyWatcher.h>
#include <Client/SettingWrite.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <NboAttrLog/Session.h>
#include <NboAttrLog/SocketInSm.h>
#include <NboAttrLog/SocketOutSm.h>
#include <Server/AttrLogServer.h>

#include <AgentTestSupport/EventRecorder.h>
#include <AgentTestSupport/TempFolder.h>
#include <AgentTestSupport/TestAddresses.h>
#include <AgentTestSupport/TestSocket.h>
#include <boost/asio/io_context.hpp>

namespace Agent {
namespace {

using Gmp::Igmp::QuerierConfig;
using Ilvo::IpAddr;
using Mox::NboAttrLog::Access;
using Mox::NboAttrLog::Directory;
using Mox::NboAttrLog::Moved;
using Mox::NboAttrLog::Session;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

TEST_F(AttrLogCopyTest, holdsTheStateThenItsChanges) {
  interfaceIs("eth0");
  interfaceIs("eth1");
  served_["eth0"].status->groupIs(group)->sourceIs(IpAddr(10, 0, 0, 5));
  served_["eth1"].config->robustnessIs(5);
  serve();
  copy_->connect();
  settle();
  EXPECT_EQ(currentCount_, 1);
  EXPECT_EQ(copy_->interfaces().size(), 2u);
  EXPECT_EQ(copyOf("eth1").config->robustness(), 5u);
  ASSERT_NE(copyOf("eth0").status->group(group), nullptr);
  EXPECT_NE(copyOf("eth0").status->group(group)->source(IpAddr(10, 0, 0, 5)), nullptr);
  served_["eth0"].status->groupDel(group);
  settle();
  EXPECT_EQ(copyOf("eth0").status->group().size(), 0u);
}

TEST_F(AttrLogCopyTest, writesTheConfigurationAndIsNotifiedWhenTheAgentHasActed) {
  interfaceIs("eth0");
  serve();
  copy_->connect();
  settle();
  ASSERT_TRUE(copyOf("eth0").configurable);
  copyOf("eth0").config->queryIntervalIs(60.0);
  copy_->ask(7);
  EXPECT_EQ(answer_, 0u);
  settle();
  EXPECT_EQ(answer_, 7u);
  EXPECT_EQ(served_["eth0"].config->queryInterval(), 60.0);
}

TEST_F(AttrLogCopyTest, valuesThatAreWrittenTogetherAreJudgedTogether) {
  interfaceIs("eth0");
  serve();
  copy_->connect();
  settle();
  QuerierConfig& config = *copyOf("eth0").config;
  copy_->writeTogether([&] {
    config.queryIntervalIs(5.0);
    config.queryResponseIntervalIs(2.0);
  });
  copy_->writeTogether([&] {
    config.queryResponseIntervalIs(100.0);
    config.queryIntervalIs(200.0);
  });
  settle();
  EXPECT_TRUE(copy_->isConnected()) << why_;
  EXPECT_EQ(served_["eth0"].config->queryInterval(), 200.0);
  EXPECT_EQ(served_["eth0"].config->queryResponseInterval(), 100.0);
}

// Takes the startup interval over as a querier does.
class TakesStartupInterval final : public QuerierConfig::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onStartupQueryInterval() override { quarter_ = 0.25 * notifier()->queryInterval(); }
  double quarter_ = 0.0;
};

TEST_F(AttrLogCopyTest, quarterOfTheQueryIntervalIsOfTheOneThatIsWrittenWithIt) {
  interfaceIs("eth0");
  served_["eth0"].config->startupQueryIntervalIs(20.0);
  TakesStartupInterval querier(served_["eth0"].config);
  serve();
  copy_->connect();
  settle();
  copy_->writeTogether([&] {
    copyOf("eth0").config->startupQueryIntervalIs(0.0);
    copyOf("eth0").config->queryIntervalIs(60.0);
  });
  settle();
  EXPECT_EQ(querier.quarter_, 15.0);
}

TEST_F(AttrLogCopyTest, oneRefusedValueKeepsTheOthersFromBeingSet) {
  interfaceIs("eth0");
  serve();
  copy_->connect();
  settle();
  copy_->writeTogether([&] {
    copyOf("eth0").config->robustnessIs(3);
    copyOf("eth0").config->queryIntervalIs(0.0);
  });
  settle();
  EXPECT_EQ(why_, "queryInterval 0: must be from 1 to 31744 (RFC 3376 8.2)");
  EXPECT_EQ(served_["eth0"].config->robustness(), 2u);
}

TEST_F(AttrLogCopyTest, getsTheReasonOfARefusal) {
  interfaceIs("eth0");
  serve();
  copy_->connect();
  settle();
  copyOf("eth0").config->queryIntervalIs(0.0);
  settle();
  EXPECT_EQ(end_, AttrLogCopy::End::refused);
  EXPECT_EQ(why_, "queryInterval 0: must be from 1 to 31744 (RFC 3376 8.2)");
  EXPECT_FALSE(copy_->isConnected());
}

TEST_F(AttrLogCopyTest, withoutAnAgentThereIsNoConnection) {
  EXPECT_THAT([&] { copy_->connect(); },
              ThrowsMessage<ConnectError>(HasSubstr("no agent is running")));
  EXPECT_FALSE(copy_->isConnected());
}

TEST_F(AttrLogCopyTest, isNotifiedWhenTheAgentHasGoneAndKeepsItsCopies) {
  interfaceIs("eth0");
  served_["eth0"].status->groupIs(group);
  serve();
  copy_->connect();
  settle();
  server_.reset();
  settle();
  EXPECT_EQ(end_, AttrLogCopy::End::lost);
  EXPECT_EQ(copyOf("eth0").status->group().size(), 1u);
}

// The same state after a restart is no event.
TEST_F(AttrLogCopyTest, afterAReconnectionOnlyDifferencesAreReported) {
  interfaceIs("eth0");
  interfaceIs("eth1");
  served_["eth0"].status->groupIs(group)->sourceIs(IpAddr(10, 0, 0, 5));
  served_["eth0"].status->groupIs(IpAddr(239, 1, 1, 2));
  serve();
  copy_->connect();
  settle();
  EventRecorder events;
  CopyWatcher watcher(copy_->interfaces(), {}, events);
  watcher.flush();
  events.taken();
  const auto* const before = copyOf("eth0").status->group(group).get();

  server_.reset();
  settle();
  served_["eth0"].status->groupDel(IpAddr(239, 1, 1, 2));
  served_["eth0"].status->groupIs(IpAddr(239, 1, 1, 3));
  served_["eth0"].config->robustnessIs(4);
  served_.erase("eth1");
  serve();
  copy_->connect();
  settle();
  EXPECT_EQ(currentCount_, 2);
  EXPECT_EQ(copyOf("eth0").status->group(group).get(), before);
  watcher.flush();
  EXPECT_THAT(events.taken(),
              testing::UnorderedElementsAre("1000 interface gone", "1000 configured robustness 4",
                                            "1000 joined 239.1.1.3 by 0.0.0.0 (version 3, include)",
                                            "1000 left 239.1.1.2"));
}

TEST_F(AttrLogCopyTest, holdsTheStateOfTheInterfaceItself) {
  interfaceIs("eth0");
  serve();
  const auto state = Mox::makePtr<InterfaceState>("eth0");
  state->addressIs(IpAddr(10, 0, 0, 1));
  server_->directory().entryIs("interface/eth0", state, Access::readOnly);
  copy_->connect();
  settle();
  ASSERT_NE(copyOf("eth0").state, nullptr);
  EXPECT_EQ(copyOf("eth0").state->address(), IpAddr(10, 0, 0, 1));
  state->runningIs(true);
  state->electedTimeIs(900.0);
  settle();
  EXPECT_TRUE(copyOf("eth0").state->running());
  EXPECT_EQ(copyOf("eth0").state->electedTime(), 900.0);
  server_->directory().entryDel("interface/eth0");
  settle();
  EXPECT_EQ(copyOf("eth0").state, nullptr);
  EXPECT_NE(copyOf("eth0").status, nullptr);
}

TEST_F(AttrLogCopyTest, entryOfAnotherFolderRemovesNoInterface) {
  interfaceIs("eth0");
  serve();
  server_->directory().entryIs("other/eth0", Gmp::Igmp::querierStatusFactory(), Access::readOnly);
  copy_->connect();
  settle();
  server_->directory().entryDel("other/eth0");
  settle();
  EXPECT_EQ(copy_->interfaces().size(), 1u);
}

TEST_F(AttrLogCopyTest, interfaceThatTheAgentGivesUpIsRemoved) {
  interfaceIs("eth0");
  serve();
  copy_->connect();
  settle();
  server_->directory().entryDel("status/eth0");
  server_->directory().entryDel("config/eth0");
  settle();
  EXPECT_THAT(copy_->interfaces(), IsEmpty());
}

// The test itself at the other end.
class OtherServerTest : public AttrLogCopyTest, public Mox::NboAttrLog::SessionHost {
 protected:
  void connect() {
    copy_->connect();
    settle();
    peer_.emplace(serving_.accepted());
  }
  void send(const std::string& bytes) {
    EXPECT_EQ(peer_->send(bytes), bytes.size());
    settle();
  }
  // Serves as an agent does to a reader that may not write.
  void serveReadOnly(Directory& directory) {
    session_.emplace(static_cast<SessionHost&>(*this),
                     Session::Setup{.name = "agent", .peerName = "copy"}, &directory);
    Mox::NboAttrLog::SocketInSm in(peer_->fd(), *session_);
    Mox::NboAttrLog::StreamSocketOutSm out(peer_->fd(), session_->stream());
    for (int round = 0; round < 5; ++round) {
      while (in.handleReadable() == Moved::all) {
      }
      session_->drain();
      out.handleWritable();
      settle();
    }
  }
  void onOutput() override {}

  TestSocket serving_ = TestSocket::servingAt(path_);
  std::optional<TestSocket> peer_;
  std::optional<Session> session_;
};

TEST_F(OtherServerTest, readerThatMayNotWriteKnowsItBeforeWriting) {
  Directory directory;
  directory.entryIs("config/eth0", Gmp::Igmp::querierConfigFactory("eth0"), Access::configurable);
  directory.entryIs("status/eth0", Gmp::Igmp::querierStatusFactory(), Access::readOnly);
  connect();
  serveReadOnly(directory);
  ASSERT_EQ(currentCount_, 1);
  EXPECT_FALSE(copyOf("eth0").configurable);
  session_.reset();
}

TEST_F(OtherServerTest, entriesOfAnotherFolderAreIgnored) {
  Directory directory;
  directory.entryIs("other/eth0", Gmp::Igmp::querierStatusFactory(), Access::readOnly);
  connect();
  serveReadOnly(directory);
  EXPECT_EQ(currentCount_, 1);
  EXPECT_THAT(copy_->interfaces(), IsEmpty());
  session_.reset();
}

TEST_F(OtherServerTest, versionOfTheAgentIsNamed) {
  connect();
  send(std::string("\0\x12\x01MoxL\0\x02\0\0\0\0\0\0\0\0\0\0\0", 20));
  EXPECT_EQ(end_, AttrLogCopy::End::protocolError);
  EXPECT_THAT(why_, AllOf(HasSubstr(path_), HasSubstr("version 2 of the attribute log, not 1"),
                          HasSubstr("the same version of igmpq")));
}

TEST_F(OtherServerTest, otherProtocolIsNotUnderstood) {
  connect();
  send("HTTP/1.1 400 Bad Request\r\n\r\n");
  EXPECT_EQ(end_, AttrLogCopy::End::protocolError);
}

TEST_F(OtherServerTest, serverThatSendsNothingHasNoEffect) {
  connect();
  settle();
  EXPECT_EQ(end_, std::nullopt);
  EXPECT_EQ(currentCount_, 0);
  EXPECT_EQ(inputs_, 0);
}

}  // namespace
}  // namespace Agent
