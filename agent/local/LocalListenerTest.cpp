#include <Local/LocalListener.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <Local/AttrLogSocket.h>
#include <Local/LocalConnect.h>
#include <Mox/ActivityClock.h>

#include <AgentTestSupport/TempFolder.h>

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
                      [this](LocalListener::Socket socket) { in_.push_back(std::move(socket)); });
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
  std::vector<LocalListener::Socket> in_;
  std::optional<LocalListener> listener_;
};

TEST_F(LocalListenerTest, letsInWhoConnects) {
  listen(path_);
  LocalListener::Socket first(io_);
  LocalListener::Socket second(io_);
  EXPECT_EQ(connectToAgent(first, path_), "");
  EXPECT_EQ(connectToAgent(second, path_), "");
  run();
  EXPECT_EQ(in_.size(), 2u);
}

TEST_F(LocalListenerTest, fileIsForTheUserAndTheGroupAndGoesWithIt) {
  listen(path_);
  struct stat file {};
  ASSERT_EQ(stat(path_.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0660u);
  listener_.reset();
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(LocalListenerTest, whatIsInTheWayIsToldWithWhatItWasFor) {
  listen(path_);
  const auto again = [&] {
    LocalListener(io_, {.path = path_, .what = "others"}, wheel_, [](LocalListener::Socket) {});
  };
  EXPECT_THAT(again, ThrowsMessage<std::runtime_error>(
                         "cannot serve others at " + path_ +
                         ": another agent serves there; choose another path with --socket"));
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_THAT([&] { listen(folder_.path() + "/" + std::string(100, 'x')); },
              ThrowsMessage<std::runtime_error>(HasSubstr("the path is too long for a socket")));
}

TEST_F(LocalListenerTest, pathMayBeAPlainName) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  listen("test.sock");
  EXPECT_TRUE(std::filesystem::exists(folder_.path() + "/test.sock"));
  listener_.reset();
  std::filesystem::current_path(before);
}

TEST_F(LocalListenerTest, whoComesWithoutAFreeDescriptorIsLetInWhenThereIsOne) {
  listen(path_);
  LocalListener::Socket late(io_);
  ASSERT_EQ(connectToAgent(late, path_), "");
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit full{.rlim_cur = 0, .rlim_max = limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &full), 0);
  run();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_TRUE(in_.empty());
  advance(0.5);
  EXPECT_TRUE(in_.empty()) << "asked again at once";
  advance(1.0);
  EXPECT_EQ(in_.size(), 1u);
}

TEST(RequestSocketPath, isBesideTheAttributeLogsAndNeverTheSame) {
  EXPECT_EQ(requestSocketPath("/run/igmpq/attrlog.sock"), "/run/igmpq/request.sock");
  EXPECT_EQ(requestSocketPath("attrlog.sock"), "request.sock");
  EXPECT_EQ(requestSocketPath("/tmp/lab/1.sock"), "/tmp/lab/1.request");
  EXPECT_EQ(requestSocketPath("/tmp/lab.d/agent"), "/tmp/lab.d/agent.request");
  EXPECT_EQ(requestSocketPath("/tmp/lab/request.sock"), "/tmp/lab/request.request");
  EXPECT_EQ(requestSocketPath("/tmp/lab/1.request"), "/tmp/lab/1.request.request");
}

}  // namespace
}  // namespace Agent
