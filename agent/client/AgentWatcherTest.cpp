#include <Client/AgentWatcher.h>

#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Client/BadRequest.h>

#include <AgentTestSupport/EventRecorder.h>
#include <AgentTestSupport/ServedAgent.h>
#include <AgentTestSupport/TestAddresses.h>
#include <AgentTestSupport/TestSocket.h>
#include <boost/asio/io_context.hpp>

namespace Agent {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;
using Lines = std::vector<std::string>;

class AgentWatcherTest : public testing::Test {
 protected:
  void watch(AgentWatcher::Options options = {}) {
    options.path = agent_.path();
    watcher_.emplace(agent_.loop(), options, events_);
    watcher_->start();
  }
  Lines reported() {
    agent_.loop().poll();
    return events_.taken();
  }
  Lines reportedWithin(Mox::Seconds seconds) {
    agent_.advance(seconds);
    return events_.taken();
  }

  ServedAgent agent_;
  EventRecorder events_;
  std::optional<AgentWatcher> watcher_;
};

TEST_F(AgentWatcherTest, reportsChangesWhenTheyHappen) {
  agent_.start();
  watch();
  EXPECT_THAT(reported(), IsEmpty());
  agent_.status()->groupIs(group)->lastReporterIs(host);
  EXPECT_THAT(reported(), ElementsAre("1000 joined 239.1.1.1 by 10.0.0.11 (version 3, include)"));
  agent_.config()->robustnessIs(3);
  EXPECT_THAT(reported(), ElementsAre("1000 configured robustness 3"));
}

TEST_F(AgentWatcherTest, reportsTheStateAtTheBeginningOnRequest) {
  agent_.status()->groupIs(group);
  agent_.start();
  watch({.fromTheBeginning = true});
  EXPECT_THAT(reported(), ElementsAre("1000 joined 239.1.1.1 by 0.0.0.0 (version 3, include)"));
}

TEST_F(AgentWatcherTest, reportsCountersOnceASecondOnRequest) {
  agent_.start();
  watch({.counters = true});
  reported();
  agent_.status()->joinsInc(1);
  EXPECT_THAT(reported(), IsEmpty());
  EXPECT_THAT(reportedWithin(1.0), ElementsAre("1001 counters joins 1"));
  EXPECT_THAT(reportedWithin(5.0), IsEmpty());
}

TEST_F(AgentWatcherTest, withoutAnAgentItDoesNotStart) {
  EXPECT_THAT([&] { watch(); }, ThrowsMessage<ConnectError>(HasSubstr("no agent is running")));
}

TEST_F(AgentWatcherTest, unknownInterfaceIsABadRequest) {
  agent_.start();
  watch({.interfaces = {"eth0", "eth7"}});
  EXPECT_THAT([&] { reported(); },
              ThrowsMessage<BadRequest>("the agent has no interface eth7; it has: eth0"));
}

TEST_F(AgentWatcherTest, agentThatGoesIsReportedOnceAndReconnectedWhenItIsBack) {
  agent_.status()->groupIs(group);
  agent_.start();
  watch({.counters = true});
  reported();
  agent_.stop();
  EXPECT_THAT(reported(), ElementsAre("1000 the agent has gone; waiting for it to come back"));
  agent_.status()->joinsInc(1);
  EXPECT_THAT(reportedWithin(60.0), IsEmpty()) << "once, and no counters of an agent that is gone";
  agent_.start();
  EXPECT_THAT(reported(), IsEmpty()) << "before the next attempt";
  EXPECT_THAT(reportedWithin(AgentWatcher::retryInterval), ElementsAre("1060.5 the agent is back"));
  agent_.status()->groupDel(group);
  EXPECT_THAT(reported(), ElementsAre("1060.5 left 239.1.1.1"));
}

TEST_F(AgentWatcherTest, changesDuringTheAbsenceAreReportedWhenTheAgentIsBack) {
  agent_.status()->groupIs(group);
  agent_.start();
  watch();
  reported();
  agent_.stop();
  reported();
  agent_.status()->groupDel(group);
  agent_.start();
  EXPECT_THAT(reportedWithin(1.0), ElementsAre("1001 the agent is back", "1001 left 239.1.1.1"));
}

// Wherever the agent and the watcher are in their exchange.
TEST_F(AgentWatcherTest, restartDuringAnExchangeLosesNoLaterChange) {
  agent_.start();
  watch();
  reported();
  for (int handlers = 0; handlers < 12; ++handlers) {
    agent_.config()->robustnessIs(3);
    for (int run = 0; run < handlers; ++run) agent_.loop().io().poll_one();
    agent_.stop();
    agent_.loop().poll();
    agent_.start();
    agent_.advance(1.0);
    events_.taken();
    agent_.config()->robustnessIs(2);
    EXPECT_THAT(reported(), ElementsAre(HasSubstr("configured robustness 2"))) << handlers;
  }
}

TEST_F(AgentWatcherTest, nothingOfAnAgentIsReportedBeforeItIsBack) {
  agent_.start();
  watch({.counters = true});
  reported();
  for (int handlers = 0; handlers < 12; ++handlers) {
    agent_.stop();
    reported();
    agent_.status()->joinsInc(1);
    agent_.start();
    Mox::virtualTimeIs(Mox::now() + AgentWatcher::retryInterval);
    agent_.loop().wheel()->turn(Mox::now());
    for (int run = 0; run < handlers; ++run) agent_.loop().io().poll_one();
    const Lines first = events_.taken();
    const Lines all = reportedWithin(2.0 * AgentWatcher::counterInterval);
    EXPECT_THAT(first.empty() ? all.front() : first.front(), HasSubstr("the agent is back"))
        << handlers;
    EXPECT_THAT(all, Contains(HasSubstr("counters joins")));
  }
}

// The test itself serves the path when the agent has gone.
class OtherAgentTest : public AgentWatcherTest {
 protected:
  void replaceAgent() {
    agent_.start();
    watch();
    reported();
    agent_.stop();
    reported();
    serving_.emplace(TestSocket::servingAt(agent_.path()));
    agent_.advance(1.0);
    peer_.emplace(serving_->accepted());
  }
  std::optional<TestSocket> serving_;
  std::optional<TestSocket> peer_;
};

TEST_F(OtherAgentTest, agentThatSendsNothingIsNotBackAndIsWaitedFor) {
  replaceAgent();
  EXPECT_THAT(reportedWithin(600.0), IsEmpty());
  EXPECT_FALSE(peer_->received().empty()) << "it was greeted";
  EXPECT_FALSE(peer_->isEnded());
}

TEST_F(OtherAgentTest, agentThatGoesBeforeItIsCompleteIsTriedAgainWithoutAnEvent) {
  replaceAgent();
  peer_->close();
  EXPECT_THAT(reported(), IsEmpty());
  agent_.advance(1.0);
  const TestSocket again = serving_->accepted();
  EXPECT_GE(again.fd(), 0);
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(OtherAgentTest, agentOfAnotherProtocolEndsIt) {
  replaceAgent();
  peer_->send(otherProtocol);
  EXPECT_THAT([&] { reported(); }, ThrowsMessage<std::runtime_error>(HasSubstr("not understood")));
}

TEST_F(AgentWatcherTest, agentThatGoesBeforeTheFirstStateIsCompleteEndsIt) {
  TestSocket serving = TestSocket::servingAt(agent_.path());
  watch();
  serving.accepted().close();
  EXPECT_THAT([&] { reported(); }, ThrowsMessage<std::runtime_error>("the agent has gone"));
}

}  // namespace
}  // namespace Agent
