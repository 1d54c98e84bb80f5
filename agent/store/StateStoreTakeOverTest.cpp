// A new agent begins while the store has the state of one before.
#include <Store/StateStore.h>

#include <algorithm>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <NboAttrLog/Directory.h>
#include <NboAttrLog/Session.h>

#include <AgentTestSupport/TestAddresses.h>
#include <AgentTestSupport/TestSocket.h>
#include "StateStoreTestSupport.h"

namespace Agent {
namespace {

using Mox::NboAttrLog::Access;
using testing::Contains;
using testing::EndsWith;

constexpr Ilvo::IpAddr firstGroup(239, 1, 1, 1);
constexpr Ilvo::IpAddr secondGroup(239, 1, 1, 2);
constexpr Ilvo::IpAddr thirdGroup(239, 1, 1, 3);

class StateStoreTakeOverTest : public StateStoreTest {
 protected:
  // An agent that ended with these groups on eth0.
  void agentHad(std::initializer_list<Ilvo::IpAddr> groups) {
    Status& status = interfaceIs("eth0");
    for (const Ilvo::IpAddr addr : groups) status.groupIs(addr)->creationTimeIs(900.0);
    agentStarts();
    advance(StateStore::retryInterval);
    agentEnds();
  }
  // An agent that is killed after it has sent all frames of its first walk up to the one that
  // holds this text.
  void agentIsKilledAfter(const std::string& text) {
    Mox::NboAttrLog::Directory directory;
    directory.entryIs("config/eth0", Gmp::Igmp::querierConfigFactory("eth0"), Access::readOnly);
    directory.entryIs("status/eth0", served_.at("eth0"), Access::readOnly);
    struct Host final : Mox::NboAttrLog::SessionHost {
      void onOutput() override {}
    } host;
    std::string sent;
    {
      Mox::NboAttrLog::Session session(host, {.name = "agent", .peerName = "store"}, &directory);
      TestSocket serving = TestSocket::servingAt(agentPath_);
      advance(StateStore::retryInterval);
      TestSocket connection = serving.accepted();
      settle();
      const std::string hello = connection.received();
      session.input({reinterpret_cast<const Mox::U8*>(hello.data()), hello.size()});
      session.drain();
      const auto pending = session.stream().pending();
      sent.assign(reinterpret_cast<const char*>(pending.data()), pending.size());
      connection.send(sent.substr(0, endOfFrameWith(sent, text)));
      settle();
    }
    served_.clear();
    settle();
    ::unlink(agentPath_.c_str());
  }
  static size_t endOfFrameWith(const std::string& frames, const std::string& text) {
    const size_t found = frames.find(text);
    EXPECT_NE(found, std::string::npos);
    size_t end = 0;
    while (end <= found) {
      const auto byteAt = [&](size_t at) { return size_t{static_cast<unsigned char>(frames[at])}; };
      end += 2 + (byteAt(end) << 8u) + byteAt(end + 1);
    }
    return end;
  }
  static std::string bytesOf(Ilvo::IpAddr addr) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
      bytes += static_cast<char>(addr.value() >> static_cast<unsigned>(shift));
    }
    return bytes;
  }
};

TEST_F(StateStoreTakeOverTest, copyStaysAsItIsUntilTheNewAgentSendsItsState) {
  store();
  agentHad({firstGroup});
  const Mox::Seconds lost = state().lostTime();
  TestSocket starting = TestSocket::servingAt(agentPath_);
  advance(5.0);
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
  EXPECT_EQ(state().lostTime(), lost);
}

TEST_F(StateStoreTakeOverTest, groupsThatTheNewAgentDoesNotHaveLeaveWithItsFirstWalk) {
  store();
  agentHad({firstGroup, secondGroup});
  interfaceIs("eth0").groupIs(secondGroup);
  agentStarts();
  advance(StateStore::retryInterval);
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.2");
  EXPECT_EQ(state().lostTime(), 0.0);
}

TEST_F(StateStoreTakeOverTest, interfaceThatTheNewAgentDoesNotHaveIsForgotten) {
  store();
  interfaceIs("eth1").groupIs(firstGroup);
  agentHad({firstGroup});
  EXPECT_EQ(groupsOf("eth1"), "239.1.1.1");
  interfaceIs("eth0");
  agentStarts();
  advance(StateStore::retryInterval);
  EXPECT_EQ(groupsOf("eth1"), "no such interface");
}

TEST_F(StateStoreTakeOverTest, agentThatIsKilledAtOnceTakesNothingFromTheCopy) {
  store();
  agentHad({firstGroup});
  const Mox::Seconds lost = state().lostTime();
  for (int agents = 0; agents < 3; ++agents) {
    TestSocket starting = TestSocket::servingAt(agentPath_);
    advance(StateStore::retryInterval);
    starting.close();
    ::unlink(agentPath_.c_str());
    settle();
  }
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
  EXPECT_EQ(state().lostTime(), lost);
}

TEST_F(StateStoreTakeOverTest, agentThatIsKilledInItsFirstWalkAddsWhatItSentAndTakesNothing) {
  store();
  agentHad({firstGroup, thirdGroup});
  Status& status = interfaceIs("eth0");
  for (const Ilvo::IpAddr addr : {firstGroup, secondGroup, thirdGroup}) status.groupIs(addr);
  const Mox::Seconds lost = state().lostTime();
  agentIsKilledAfter(bytesOf(secondGroup));
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1 239.1.1.2 239.1.1.3");
  EXPECT_GT(state().lostTime(), lost);
}

TEST_F(StateStoreTakeOverTest, groupThatWasAnnouncedAndNotDescribedHasNoCreationTime) {
  store();
  agentHad({});
  interfaceIs("eth0").groupIs(secondGroup)->creationTimeIs(1000.0);
  agentIsKilledAfter(bytesOf(secondGroup));
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.2");
  EXPECT_EQ(reader_->interfaces().at("eth0").status->group(secondGroup)->creationTime(), 0.0);
}

TEST_F(StateStoreTakeOverTest, copyOfAnAgentThatIsKilledInTheVeryFirstWalkIsNotComplete) {
  store();
  interfaceIs("eth0").groupIs(firstGroup);
  agentIsKilledAfter(bytesOf(firstGroup));
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
  EXPECT_FALSE(state().complete());
  EXPECT_NE(state().lostTime(), 0.0);
}

TEST_F(StateStoreTakeOverTest, copyRemainsCompleteWhenTheNextAgentIsKilledInItsFirstWalk) {
  store();
  agentHad({firstGroup});
  interfaceIs("eth0").groupIs(firstGroup);
  agentIsKilledAfter("status/eth0");
  EXPECT_TRUE(state().complete());
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
}

// It reads while the store waits for its hello; what it reads is a copy that does not change.
TEST_F(StateStoreTakeOverTest, newAgentReadsTheCopyWhileTheStoreIsAlreadyConnectedToIt) {
  store();
  agentHad({firstGroup});
  TestSocket starting = TestSocket::servingAt(agentPath_);
  advance(StateStore::retryInterval);
  TestSocket connection = starting.accepted();
  ASSERT_GE(connection.fd(), 0);
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
  EXPECT_NE(state().lostTime(), 0.0);
}

}  // namespace
}  // namespace Agent
