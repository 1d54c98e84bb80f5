#include <Client/AttrLogClient.h>

#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Client/BadRequest.h>

#include <AgentTestSupport/TestAddresses.h>
#include <AgentTestSupport/TestSocket.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include "ServedAgent.h"

namespace Agent {
namespace {

using std::chrono_literals::operator""s;
using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

// Without time to wait, an agent still has all the time that it needs in the same process.
class AttrLogClientTest : public testing::Test {
 protected:
  auto failure(const std::string& text) { return ThrowsMessage<std::runtime_error>(text); }
  // The test itself serves the path: accepts the client when it has connected, and sends that.
  void answerWith(const std::string& bytes, bool goes = false) {
    serving_.emplace(TestSocket::servingAt(agent_.path()));
    boost::asio::post(agent_.loop().io(), [this, bytes, goes] {
      peer_.emplace(serving_->accepted());
      peer_->send(bytes);
      if (goes) peer_->endOutput();
    });
  }

  ServedAgent agent_;
  std::optional<TestSocket> serving_;
  std::optional<TestSocket> peer_;
  AttrLogClient client_{agent_.loop(), agent_.path(), 0s};
};

TEST_F(AttrLogClientTest, fetchesTheWholeState) {
  for (Mox::U32 number = 0; number < 5000; ++number) {
    agent_.status()->groupIs(Ilvo::IpAddr(0xe8000000u + number));
  }
  agent_.start();
  client_.fetch();
  EXPECT_EQ(client_.interfaces().at("eth0").status->group().size(), 5000u);
}

TEST_F(AttrLogClientTest, settlesWhenTheAgentHasActedOnWhatWasWritten) {
  agent_.start();
  client_.fetch();
  client_.interfaces().at("eth0").config->robustnessIs(3);
  EXPECT_TRUE(client_.settle(0s));
  EXPECT_EQ(agent_.config()->robustness(), 3u);
}

TEST_F(AttrLogClientTest, refusalIsThrownWithItsReason) {
  agent_.start();
  client_.fetch();
  client_.interfaces().at("eth0").config->robustnessIs(9);
  EXPECT_THAT([&] { client_.settle(0s); },
              failure("the agent refuses: robustness 9: must be from 1 to 7 (RFC 3376 8.1)"));
}

TEST_F(AttrLogClientTest, withoutAnAgentItSaysHowToStartOne) {
  EXPECT_THAT([&] { client_.fetch(); },
              ThrowsMessage<ConnectError>(HasSubstr("start one with `systemctl start igmpq` or")));
}

TEST_F(AttrLogClientTest, agentThatSendsNothingIsNamed) {
  answerWith("");
  EXPECT_THAT([&] { client_.fetch(); },
              failure("the agent at " + agent_.path() + " says nothing for 0 s: it may hang"));
}

TEST_F(AttrLogClientTest, agentThatDoesNotAnswerAQuestionDoesNotSettle) {
  agent_.start();
  client_.fetch();
  agent_.loop().stop();  // nothing moves any more
  EXPECT_FALSE(client_.settle(0s));
}

TEST_F(AttrLogClientTest, agentThatGoesBeforeTheStateIsCompleteIsNamed) {
  answerWith("", true);
  EXPECT_THAT([&] { client_.fetch(); }, failure("the agent has gone"));
}

TEST_F(AttrLogClientTest, agentOfAnotherProtocolIsNotUnderstood) {
  answerWith(otherProtocol);
  EXPECT_THAT([&] { client_.fetch(); },
              ThrowsMessage<std::runtime_error>(
                  AllOf(HasSubstr("what serves " + agent_.path() + " is not understood"),
                        HasSubstr("the same version of igmpq"))));
}

TEST_F(AttrLogClientTest, unknownInterfaceIsABadRequestThatListsTheKnownOnes) {
  EXPECT_THAT([&] { interfaceOf(client_.interfaces(), "eth7"); },
              ThrowsMessage<BadRequest>("the agent has no interface eth7; it has: none"));
  agent_.start();
  client_.fetch();
  EXPECT_THAT([&] { interfaceOf(client_.interfaces(), "eth7"); },
              ThrowsMessage<BadRequest>("the agent has no interface eth7; it has: eth0"));
  EXPECT_EQ(interfaceOf(client_.interfaces(), "eth0").config->robustness(), 2u);
}

}  // namespace
}  // namespace Agent
