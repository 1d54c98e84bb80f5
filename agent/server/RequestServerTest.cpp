#include <Server/RequestServer.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <AgentTestSupport/TempFolder.h>
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
  explicit TestClient(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
  }
  ~TestClient() { ::close(fd_); }
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;

  bool connected() const { return connected_; }
  bool ended() const { return ended_; }
  // How much the other side takes without being asked.
  size_t say(const std::string& bytes) {
    const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent < 0 ? 0 : static_cast<size_t>(sent);
  }
  void ask(const std::string& request) { ASSERT_EQ(say(request + "\n"), request.size() + 1); }
  void sayNothingMore() { ::shutdown(fd_, SHUT_WR); }
  void take() {
    char bytes[4096];
    ssize_t got = 0;
    while ((got = ::recv(fd_, bytes, sizeof(bytes), MSG_DONTWAIT)) > 0) {
      heard_.append(bytes, static_cast<size_t>(got));
    }
    ended_ = ended_ || got == 0 || (errno != EAGAIN && errno != EINTR);
  }
  // The lines since the last call.
  std::vector<std::string> heard() { return linesOf(std::exchange(heard_, {})); }

 private:
  const int fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  bool connected_ = false;
  bool ended_ = false;
  std::string heard_;
};

class RequestServerTest : public testing::Test {
 protected:
  // What the agent's loop does, until it has nothing to do.
  void run() {
    io_.restart();
    while (io_.poll_one() != 0) {
      server_->followUp();
      ASSERT_LT(++rounds_, 100000) << "the loop never rests";
    }
  }
  // Until neither side has anything to say.
  void settle(const std::vector<TestClient*>& clients) {
    for (int round = 0; round < 200; ++round) {
      run();
      for (TestClient* client : clients) client->take();
    }
  }
  std::vector<std::string> answerTo(TestClient& client, const std::string& request) {
    client.ask(request);
    settle({&client});
    return client.heard();
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/run/request.sock";
  RequestAgent agent_;
  int rounds_ = 0;
  boost::asio::io_context io_;
  std::optional<RequestServer> server_{std::in_place, io_, path_, agent_.wheel(),
                                       agent_.services()};
};

TEST_F(RequestServerTest, answersOneRequestAfterTheOther) {
  TestClient client(path_);
  EXPECT_THAT(answerTo(client, clearCounters), ElementsAre(ok));
  EXPECT_THAT(answerTo(client, R"({"op":"traceHandles"})"), ElementsAre(HasSubstr("\"handles\"")));
  client.ask(std::string(clearCounters) + "\n" + clearCounters + "\n" + clearCounters);
  settle({&client});
  EXPECT_THAT(client.heard(), ElementsAre(ok, ok, ok));
  EXPECT_FALSE(client.ended());
}

TEST_F(RequestServerTest, wholeRingIsTold) {
  fillRing();
  const Mox::U64 there = Mox::brevlog().recorded() - Mox::brevlog().overwritten();
  TestClient client(path_);
  client.ask(R"({"op":"trace"})");
  std::vector<std::string> lines;
  while (lines.empty() || lines.back() != "{\"end\":true}") {
    settle({&client});
    ASSERT_FALSE(client.ended());
    const auto more = client.heard();
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
  bad.say(std::string("\xff\xff and more\n", 12) + clearCounters + "\n");
  settle({&good, &bad});
  EXPECT_TRUE(bad.ended());
  EXPECT_THAT(bad.heard(), ElementsAre(HasSubstr("a request is one JSON object a line")));
  EXPECT_EQ(agent_.turns(), 0);
  EXPECT_EQ(server_->clients(), 1u);
  good.heard();
  trace<3>(testTrace(), "still there");
  server_->followUp();
  settle({&good});
  EXPECT_THAT(good.heard(), ElementsAre(HasSubstr("still there")));
}

TEST_F(RequestServerTest, endlessLineIsNotReadToItsEnd) {
  TestClient client(path_);
  const std::string much(size_t{1} << 20, 'x');
  size_t taken = 0;
  while (!client.ended()) {
    taken += client.say(much);
    settle({&client});
  }
  EXPECT_THAT(client.heard(), ElementsAre(HasSubstr("a line of more than 65536 bytes")));
  EXPECT_LT(taken, much.size());
  EXPECT_EQ(server_->clients(), 0u);
}

TEST_F(RequestServerTest, clientThatTakesNothingIsNotReadOnAndOthersAreAnswered) {
  TestClient greedy(path_);
  std::string requests;
  for (int line = 0; line < 20000; ++line) requests += "{\"op\":\"traceHandles\"}\n";
  size_t taken = 0;
  for (size_t more = 1; more != 0;) {
    more = greedy.say(requests);
    taken += more;
    run();
  }
  // Its answers fill its own socket, then its requests do; the rest is its to keep.
  EXPECT_LT(taken, size_t{4} << 20);
  TestClient other(path_);
  EXPECT_THAT(answerTo(other, clearCounters), ElementsAre(ok));
  EXPECT_EQ(server_->clients(), 2u);
}

TEST_F(RequestServerTest, slowFollowerMissesLinesAndIsToldHowMany) {
  TestClient slow(path_);
  slow.ask(R"({"op":"trace","follow":true})");
  const Mox::U64 first = Mox::brevlog().overwritten();
  for (int round = 0; round < 4; ++round) {
    run();
    fillRing();
    server_->followUp();
  }
  Mox::U64 told = 0;
  Mox::U64 lost = 0;
  for (size_t more = 1; more != 0;) {
    settle({&slow});
    const auto lines = slow.heard();
    more = lines.size();
    for (const std::string& line : lines) {
      constexpr std::string_view start = "{\"lost\":";
      if (line.starts_with(start)) {
        lost += std::stoull(line.substr(start.size()));
      } else {
        ++told;
      }
    }
  }
  EXPECT_GT(lost, Mox::brevlog().recorded() - Mox::brevlog().overwritten());
  EXPECT_EQ(told + lost, Mox::brevlog().recorded() - first);
  trace<3>(testTrace(), "the newest");
  server_->followUp();
  settle({&slow});
  EXPECT_THAT(slow.heard(), ElementsAre(HasSubstr("the newest")));
}

TEST_F(RequestServerTest, whoGoesWhileFollowingIsForgotten) {
  {
    TestClient client(path_);
    client.ask(followTests);
    settle({&client});
    EXPECT_EQ(server_->clients(), 1u);
  }
  run();
  EXPECT_EQ(server_->clients(), 0u);
}

TEST_F(RequestServerTest, whoSaysNothingMoreStillHasItsAnswer) {
  TestClient client(path_);
  client.ask(clearCounters);
  client.sayNothingMore();
  settle({&client});
  EXPECT_THAT(client.heard(), ElementsAre(ok));
  EXPECT_TRUE(client.ended());
  EXPECT_EQ(server_->clients(), 0u);
}

TEST_F(RequestServerTest, clientBeyondTheMostIsToldSo) {
  std::vector<std::unique_ptr<TestClient>> clients;
  for (size_t n = 0; n < RequestServer::mostClients; ++n) {
    clients.push_back(std::make_unique<TestClient>(path_));
    run();
  }
  TestClient late(path_);
  settle({&late});
  EXPECT_TRUE(late.ended());
  EXPECT_THAT(late.heard(), ElementsAre(HasSubstr("the agent answers no more clients at a time")));
  EXPECT_EQ(server_->clients(), RequestServer::mostClients);
  clients.pop_back();
  run();
  TestClient next(path_);
  EXPECT_THAT(answerTo(next, clearCounters), ElementsAre(ok));
}

// Neither who says nothing, nor who asks and takes nothing, keeps others out for ever.
TEST_F(RequestServerTest, clientThatIdlesMakesRoomForTheNext) {
  Mox::virtualTimeIs(1000.0);
  TestClient follower(path_);
  follower.ask(followTests);
  settle({&follower});
  TestClient stalled(path_);
  while (stalled.say(std::string(clearCounters) + "\n") != 0) run();
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
    next.sayNothingMore();
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

// Somebody else, to whom the socket was opened on purpose: as whom a process connects counts.
class Nobody {
 public:
  Nobody() {
    const int count = ::getgroups(0, nullptr);
    groups_.resize(static_cast<size_t>(count));
    became_ = ::getgroups(count, groups_.data()) == count && ::setgroups(0, nullptr) == 0 &&
              ::setegid(65534) == 0 && ::seteuid(65534) == 0;
  }
  ~Nobody() {
    const bool back =
        ::seteuid(0) == 0 && ::setegid(0) == 0 && ::setgroups(groups_.size(), groups_.data()) == 0;
    EXPECT_TRUE(back);
  }
  Nobody(const Nobody&) = delete;
  Nobody& operator=(const Nobody&) = delete;
  bool became() const { return became_; }

 private:
  std::vector<gid_t> groups_;
  bool became_ = false;
};

TEST_F(RequestServerTest, strangerMayReadAndNothingElse) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  for (const std::string& path : {folder_.path(), folder_.path() + "/run", path_}) {
    std::filesystem::permissions(path, std::filesystem::perms::all);
  }
  std::optional<TestClient> stranger;
  {
    const Nobody nobody;
    ASSERT_TRUE(nobody.became());
    stranger.emplace(path_);
  }
  ASSERT_TRUE(stranger->connected());
  EXPECT_THAT(answerTo(*stranger, clearCounters),
              ElementsAre(HasSubstr("not permitted to call operations")));
  EXPECT_THAT(answerTo(*stranger, R"({"op":"traceLevel","level":9})"),
              ElementsAre(HasSubstr("not permitted to set trace levels")));
  EXPECT_EQ(agent_.turns(), 0);
  EXPECT_THAT(answerTo(*stranger, R"({"op":"traceHandles"})"),
              ElementsAre(HasSubstr("\"handles\"")));
}

}  // namespace
}  // namespace Agent
