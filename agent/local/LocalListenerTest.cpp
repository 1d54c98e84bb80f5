#include <Local/LocalListener.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <Local/AttrLogSocket.h>
#include <Local/LocalSocket.h>
#include <Mox/ActivityClock.h>

#include <AgentTestSupport/OtherIdentity.h>
#include <AgentTestSupport/TempFolder.h>
#include <AgentTestSupport/TestSocket.h>
#include <boost/asio/io_context.hpp>

namespace Agent {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

class LocalListenerTest : public testing::Test {
 protected:
  LocalListenerTest() { Mox::virtualTimeIs(1000.0); }
  ~LocalListenerTest() override { Mox::realTimeIs(); }

  void listen(const std::string& path) {
    listener_.emplace(io_, LocalListener::Setup{.path = path, .what = "tests"}, wheel_,
                      [this](Descriptor socket) { accepted_.push_back(std::move(socket)); });
  }
  void run() {
    io_.restart();
    io_.poll();
  }
  void advance(Mox::Seconds seconds) {
    Mox::virtualTimeIs(Mox::now() + seconds);
    wheel_->turn(Mox::now());
    run();
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/run/test.sock";
  const Mox::Ptr<Obel::TimerWheel> wheel_ = Mox::makePtr<Obel::TimerWheel>(1000.0);
  boost::asio::io_context io_;
  std::vector<Descriptor> accepted_;
  std::optional<LocalListener> listener_;
};

TEST_F(LocalListenerTest, acceptsEveryConnection) {
  listen(path_);
  const Descriptor first = connectToAgent(path_);
  const Descriptor second = connectToAgent(path_);
  run();
  EXPECT_EQ(accepted_.size(), 2u);
}

TEST_F(LocalListenerTest, errorsNameThePathAndItsPurpose) {
  listen(path_);
  const auto again = [&] {
    LocalListener(io_, {.path = path_, .what = "others"}, wheel_, [](Descriptor) {});
  };
  EXPECT_THAT(again, ThrowsMessage<std::runtime_error>(
                         "cannot serve others at " + path_ +
                         ": another agent serves there; choose another path with --socket"));
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_THAT([&] { listen(folder_.path() + "/" + std::string(100, 'x')); },
              ThrowsMessage<std::runtime_error>(HasSubstr("the path is too long for a socket")));
}

TEST_F(LocalListenerTest, pathCanBeAPlainName) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  listen("test.sock");
  EXPECT_TRUE(std::filesystem::exists(folder_.path() + "/test.sock"));
  listener_.reset();
  std::filesystem::current_path(before);
}

TEST_F(LocalListenerTest, connectionWithoutAFreeDescriptorIsAcceptedWhenThereIsOne) {
  listen(path_);
  const Descriptor late = connectToAgent(path_);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit full{.rlim_cur = 0, .rlim_max = limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &full), 0);
  run();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_TRUE(accepted_.empty());
  advance(0.5);
  EXPECT_TRUE(accepted_.empty()) << "tried again at once";
  advance(1.0);
  EXPECT_EQ(accepted_.size(), 1u);
}

TEST(LocalSocketTest, errorsOfAConnectionSayWhatToDo) {
  const TempFolder folder;
  const std::string path = folder.path() + "/agent.sock";
  const auto failure = [](const std::string& at) { return ThrowsMessage<ConnectError>(at); };
  const auto noAgent = [&](const std::string& at) {
    return failure("no agent is running: nobody serves " + at +
                   "; start one with `systemctl start igmpq` or `igmpq run`, or name another one's "
                   "with --socket");
  };
  EXPECT_THAT([&] { connectToAgent(path); }, noAgent(path));
  TestSocket::servingAt(path).close();  // its file stays
  EXPECT_THAT([&] { connectToAgent(path); }, noAgent(path));
  EXPECT_THAT([&] { connectToAgent(path + "/below"); }, noAgent(path + "/below"));
  const std::string longPath = "/" + std::string(200, 'x');
  EXPECT_THAT([&] { connectToAgent(longPath); },
              failure("cannot connect to the agent at " + longPath +
                      ": the path is too long for a socket"));
}

TEST(LocalSocketTest, connectionThatIsNotPermittedIsNamedSo) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take on another identity";
  const TempFolder folder;
  const std::string path = folder.path() + "/agent.sock";
  const TestSocket server = TestSocket::servingAt(path);
  const OtherIdentity other;
  EXPECT_THAT([&] { connectToAgent(path); },
              ThrowsMessage<ConnectError>("not permitted to connect to the agent at " + path +
                                          ": its folder is closed to this user; be root or the "
                                          "user that the agent runs as"));
}

TEST(LocalSocketTest, agentThatAcceptsNothingDoesNotHoldUpAClient) {
  const TempFolder folder;
  const std::string path = folder.path() + "/agent.sock";
  const TestSocket server = TestSocket::servingAt(path);
  std::vector<Descriptor> waiting;
  const auto connectMany = [&] {
    for (int count = 0; count < 100; ++count) waiting.push_back(connectToAgent(path));
  };
  EXPECT_THAT(connectMany, ThrowsMessage<ConnectError>(HasSubstr("it may hang")));
}

TEST(RequestSocketPath, isBesideTheAttributeLogAndNeverTheSame) {
  EXPECT_EQ(requestSocketPath("/run/igmpq/attrlog.sock"), "/run/igmpq/request.sock");
  EXPECT_EQ(requestSocketPath("attrlog.sock"), "request.sock");
  EXPECT_EQ(requestSocketPath("/tmp/lab/1.sock"), "/tmp/lab/1.request");
  EXPECT_EQ(requestSocketPath("/tmp/lab.d/agent"), "/tmp/lab.d/agent.request");
  EXPECT_EQ(requestSocketPath("/tmp/lab/request.sock"), "/tmp/lab/request.request");
  EXPECT_EQ(requestSocketPath("/tmp/lab/1.request"), "/tmp/lab/1.request.request");
}

}  // namespace
}  // namespace Agent
