#include <Server/RequestServer.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <AgentTestSupport/OtherIdentity.h>
#include <AgentTestSupport/TempFolder.h>
#include <AgentTestSupport/TestSocket.h>
#include <boost/asio/io_context.hpp>
#include "RequestTestSupport.h"

namespace Agent {
namespace {

using Mox::trace;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* clearCounters =
    R"({"op":"call","interface":"eth0","operation":"clearCounters"})";
constexpr const char* followTests = R"({"op":"trace","handle":"RequestTest","follow":true})";

// A client on a real socket, in the same process.
class TestClient {
 public:
  explicit TestClient(const std::string& path) : socket_(TestSocket::connectedTo(path)) {}

  bool ended() const { return socket_.isEnded(); }
  // How much the other side takes without being asked.
  size_t send(const std::string& bytes) { return socket_.send(bytes); }
  void ask(const std::string& request) { ASSERT_EQ(send(request + "\n"), request.size() + 1); }
  void endOutput() { socket_.endOutput(); }
  void take() { received_ += socket_.received(); }
  // The lines since the last call.
  std::vector<std::string> received() { return linesOf(std::exchange(received_, {})); }

 private:
  TestSocket socket_;
  std::string received_;
};

class RequestServerTest : public testing::Test {
 protected:
  // The agent's loop, until it has nothing to do.
  void run() {
    io_.restart();
    while (io_.poll_one() != 0) {
      server_->followUp();
      ASSERT_LT(++rounds_, 100000) << "the loop is never idle";
    }
  }
  // Until neither side has anything to send.
  void settle(const std::vector<TestClient*>& clients) {
    for (int round = 0; round < 200; ++round) {
      run();
      for (TestClient* client : clients) client->take();
    }
  }
  std::vector<std::string> answerTo(TestClient& client, const std::string& request) {
    client.ask(request);
    settle({&client});
    return client.received();
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/run/request.sock";
  RequestAgent agent_;
  int rounds_ = 0;
  boost::asio::io_context io_;
  std::optional<RequestServer> server_{std::in_place, io_, RequestServer::Setup{.path = path_},
                                       agent_.wheel(), agent_.services()};
};

TEST_F(RequestServerTest, answersOneRequestAfterTheOther) {
  TestClient client(path_);
  EXPECT_THAT(answerTo(client, clearCounters), ElementsAre(ok));
  EXPECT_THAT(answerTo(client, R"({"op":"traceHandles"})"), ElementsAre(HasSubstr("\"handles\"")));
  client.ask(std::string(clearCounters) + "\n" + clearCounters + "\n" + clearCounters);
  settle({&client});
  EXPECT_THAT(client.received(), ElementsAre(ok, ok, ok));
  EXPECT_FALSE(client.ended());
}

TEST_F(RequestServerTest, wholeRingIsSent) {
  fillRing();
  const Mox::U64 there = Mox::brevlog().recorded() - Mox::brevlog().overwritten();
  TestClient client(path_);
  client.ask(R"({"op":"trace"})");
  std::vector<std::string> lines;
  while (lines.empty() || lines.back() != "{\"end\":true}") {
    settle({&client});
    ASSERT_FALSE(client.ended());
    const auto more = client.received();
    ASSERT_FALSE(more.empty());
    lines.insert(lines.end(), more.begin(), more.end());
  }
  EXPECT_EQ(lines.size(), there + 1);
}

TEST_F(RequestServerTest, garbageEndsThatConnectionOnly) {
  TestClient good(path_);
  TestClient bad(path_);
  good.ask(followTests);
  settle({&good, &bad});
  bad.send(std::string("\xff\xff and more\n", 12) + clearCounters + "\n");
  settle({&good, &bad});
  EXPECT_TRUE(bad.ended());
  EXPECT_THAT(bad.received(), ElementsAre(HasSubstr("a request is one JSON object a line")));
  EXPECT_EQ(agent_.turns(), 0);
  EXPECT_EQ(server_->clients(), 1u);
  good.received();
  trace<3>(testTrace(), "still there");
  server_->followUp();
  settle({&good});
  EXPECT_THAT(good.received(), ElementsAre(HasSubstr("still there")));
}

TEST_F(RequestServerTest, endlessLineIsNotReadToItsEnd) {
  TestClient client(path_);
  const std::string much(size_t{1} << 20, 'x');
  size_t taken = 0;
  while (!client.ended()) {
    taken += client.send(much);
    settle({&client});
  }
  EXPECT_THAT(client.received(), ElementsAre(HasSubstr("a line of more than 65536 bytes")));
  EXPECT_LT(taken, much.size());
  EXPECT_EQ(server_->clients(), 0u);
}

TEST_F(RequestServerTest, clientThatTakesNothingIsNotReadOnAndOthersAreAnswered) {
  TestClient greedy(path_);
  std::string requests;
  for (int line = 0; line < 20000; ++line) requests += "{\"op\":\"traceHandles\"}\n";
  size_t taken = 0;
  for (size_t more = 1; more != 0;) {
    more = greedy.send(requests);
    taken += more;
    run();
  }
  // Its answers fill its own socket, then its requests do; the rest stays with the client.
  EXPECT_LT(taken, size_t{4} << 20);
  TestClient other(path_);
  EXPECT_THAT(answerTo(other, clearCounters), ElementsAre(ok));
  EXPECT_EQ(server_->clients(), 2u);
}

TEST_F(RequestServerTest, slowFollowerMissesLinesAndGetsTheirNumber) {
  TestClient slow(path_);
  slow.ask(R"({"op":"trace","follow":true})");
  const Mox::U64 first = Mox::brevlog().overwritten();
  for (int round = 0; round < 4; ++round) {
    run();
    fillRing();
    server_->followUp();
  }
  Mox::U64 sent = 0;
  Mox::U64 lost = 0;
  for (size_t more = 1; more != 0;) {
    settle({&slow});
    const auto lines = slow.received();
    more = lines.size();
    for (const std::string& line : lines) {
      constexpr std::string_view start = "{\"lost\":";
      if (line.starts_with(start)) {
        lost += std::stoull(line.substr(start.size()));
      } else {
        ++sent;
      }
    }
  }
  EXPECT_GT(lost, Mox::brevlog().recorded() - Mox::brevlog().overwritten());
  EXPECT_EQ(sent + lost, Mox::brevlog().recorded() - first);
  trace<3>(testTrace(), "the newest");
  server_->followUp();
  settle({&slow});
  EXPECT_THAT(slow.received(), ElementsAre(HasSubstr("the newest")));
}

TEST_F(RequestServerTest, clientThatGoesWhileFollowingIsForgotten) {
  {
    TestClient client(path_);
    client.ask(followTests);
    settle({&client});
    EXPECT_EQ(server_->clients(), 1u);
  }
  run();
  EXPECT_EQ(server_->clients(), 0u);
}

TEST_F(RequestServerTest, clientThatEndsItsOutputStillGetsItsAnswer) {
  TestClient client(path_);
  client.ask(clearCounters);
  client.endOutput();
  settle({&client});
  EXPECT_THAT(client.received(), ElementsAre(ok));
  EXPECT_TRUE(client.ended());
  EXPECT_EQ(server_->clients(), 0u);
}

TEST_F(RequestServerTest, clientBeyondTheMostGetsAnError) {
  std::vector<std::unique_ptr<TestClient>> clients;
  for (size_t n = 0; n < RequestServer::mostClients; ++n) {
    clients.push_back(std::make_unique<TestClient>(path_));
    run();
  }
  TestClient late(path_);
  settle({&late});
  EXPECT_TRUE(late.ended());
  EXPECT_THAT(late.received(),
              ElementsAre(HasSubstr("the agent answers no more clients at a time")));
  EXPECT_EQ(server_->clients(), RequestServer::mostClients);
  clients.pop_back();
  run();
  TestClient next(path_);
  EXPECT_THAT(answerTo(next, clearCounters), ElementsAre(ok));
}

// Neither a silent client nor one that takes no answers keeps others out for ever.
TEST_F(RequestServerTest, clientThatIdlesMakesRoomForTheNext) {
  Mox::virtualTimeIs(1000.0);
  TestClient follower(path_);
  follower.ask(followTests);
  settle({&follower});
  TestClient stalled(path_);
  while (stalled.send(std::string(clearCounters) + "\n") != 0) run();
  std::vector<std::unique_ptr<TestClient>> silent;
  while (server_->clients() < RequestServer::mostClients) {
    Mox::virtualTimeIs(Mox::now() + 0.5);
    silent.push_back(std::make_unique<TestClient>(path_));
    run();
  }

  Mox::virtualTimeIs(1000.0 + RequestServer::longestIdle - 0.5);
  TestClient tooSoon(path_);
  settle({&tooSoon});
  EXPECT_TRUE(tooSoon.ended());

  for (TestClient* const gone : {&stalled, silent[0].get()}) {
    Mox::virtualTimeIs(Mox::now() + 0.5);
    TestClient next(path_);
    EXPECT_THAT(answerTo(next, clearCounters), ElementsAre(ok));
    settle({gone});
    EXPECT_TRUE(gone->ended());
    next.endOutput();
    silent.push_back(std::make_unique<TestClient>(path_));
    settle({&next});
  }
  settle({&follower});
  EXPECT_FALSE(follower.ended());
  Mox::realTimeIs();
}

TEST_F(RequestServerTest, agentThatGoesEndsItsClients) {
  TestClient client(path_);
  client.ask(followTests);
  settle({&client});
  server_.reset();
  client.take();
  EXPECT_TRUE(client.ended());
  io_.restart();
  io_.poll();
  EXPECT_FALSE(std::filesystem::exists(path_));
}

class RequestRightsTest : public RequestServerTest {
 protected:
  void serveWith(RightsOf rightsOf) {
    server_.reset();
    server_.emplace(io_, RequestServer::Setup{.path = path_, .rightsOf = std::move(rightsOf)},
                    agent_.wheel(), agent_.services());
  }
  // Its credentials are those of the time when it connected.
  TestClient otherUser() {
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0711));
    const OtherIdentity identity;
    EXPECT_TRUE(identity.isTaken());
    return TestClient(path_);
  }
  void expectRefused(TestClient& client) {
    client.send(std::string(clearCounters) + "\n{\"op\":\"traceHandles\"}\n");
    settle({&client});
    EXPECT_THAT(
        client.received(),
        ElementsAre(HasSubstr("{\"error\":\"not permitted to read from the agent: be root")));
    EXPECT_TRUE(client.ended());
    EXPECT_EQ(agent_.turns(), 0);
    EXPECT_EQ(server_->clients(), 0u);
  }
};

TEST_F(RequestRightsTest, otherUserIsRefusedUnlessAllCanRead) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take on another identity";
  TestClient other = otherUser();
  expectRefused(other);
}

// Even where every process could read.
TEST_F(RequestRightsTest, clientWhoseCredentialsCannotBeReadIsRefused) {
  const RightsOf open = peerRights({.isOpen = true, .readGroup = 0, .configureGroup = 0});
  serveWith([open](int) { return open(-1); });
  TestClient client(path_);
  expectRefused(client);
}

TEST_F(RequestRightsTest, clientThatCanOnlyReadChangesNothing) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take on another identity";
  serveWith(peerRights({.isOpen = true}));
  TestClient other = otherUser();
  EXPECT_THAT(answerTo(other, clearCounters),
              ElementsAre(HasSubstr("not permitted to call operations")));
  EXPECT_THAT(answerTo(other, R"({"op":"traceLevel","level":9})"),
              ElementsAre(HasSubstr("not permitted to set trace levels")));
  EXPECT_EQ(agent_.turns(), 0);
  EXPECT_THAT(answerTo(other, R"({"op":"traceHandles"})"), ElementsAre(HasSubstr("\"handles\"")));
}

}  // namespace
}  // namespace Agent
