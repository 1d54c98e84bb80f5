#include <Events/EventOutput.h>

#include <array>
#include <csignal>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <AgentTestSupport/TestAddresses.h>
#include <Mox/ActivityClock.h>

namespace Agent {
namespace {

using testing::HasSubstr;
using testing::Not;

Event left(const char* interface = "eth0") {
  Event event{.interface = interface, .kind = Event::groupLeft};
  event.group = group;
  return event;
}

// Into a pipe that takes one page, which nobody reads until the test does.
class EventOutputTest : public testing::Test {
 protected:
  EventOutputTest() {
    std::array<int, 2> fds{};
    EXPECT_EQ(pipe2(fds.data(), O_CLOEXEC), 0);
    read_ = Descriptor(fds[0]);
    write_ = Descriptor(fds[1]);
    pageBytes_ = static_cast<size_t>(fcntl(write_.fd(), F_SETPIPE_SZ, 4096));
    fcntl(read_.fd(), F_SETFL, O_NONBLOCK);
  }
  std::string written() {
    std::string text(1 << 20, '\0');
    const ssize_t got = ::read(read_.fd(), text.data(), text.size());
    text.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return text;
  }

  Descriptor read_;
  Descriptor write_;
  size_t pageBytes_ = 0;
};

TEST_F(EventOutputTest, writesAllLinesOfABatchAtItsFlush) {
  EventOutput output(write_.fd(), EventOutput::json);
  output.event(left());
  output.event(left("eth1"));
  EXPECT_EQ(written(), "");
  EXPECT_TRUE(output.flush());
  const std::string text = written();
  EXPECT_THAT(text, HasSubstr(R"("interface":"eth0","group":"239.1.1.1"})"));
  EXPECT_THAT(text, HasSubstr(R"("interface":"eth1","group":"239.1.1.1"})"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST_F(EventOutputTest, keepsWhatTheFileDoesNotTakeAndWritesItLater) {
  EventOutput output(write_.fd(), EventOutput::text);
  std::string all;
  for (int i = 0; i < 1000; ++i) output.event(left());
  EXPECT_FALSE(output.flush());
  while (!output.flush()) all += written();
  all += written();
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 1000);
  EXPECT_EQ(output.lost(), 0u);
}

TEST_F(EventOutputTest, countsWhatFindsNoRoomAndReportsTheNumberInItsPlace) {
  EventOutput output(write_.fd(), EventOutput::text, 2 * pageBytes_);
  for (int i = 0; i < 10000; ++i) {
    output.event(left());
    output.flush();
  }
  const Mox::U64 lost = output.lost();
  EXPECT_GT(lost, 0u);
  std::string all;
  while (!output.flush()) all += written();
  all += written();
  output.event(left("after"));
  EXPECT_TRUE(output.flush());
  all += written();
  const std::string number = std::to_string(lost) + " events were lost";
  const size_t gap = all.find(number);
  ASSERT_NE(gap, std::string::npos);
  EXPECT_GT(all.find("after"), gap);
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 10000 - static_cast<int>(lost) + 2);
  EXPECT_EQ(output.lost(), lost);
}

TEST_F(EventOutputTest, neverHoldsMoreThanItsBound) {
  EventOutput output(write_.fd(), EventOutput::text, 1000);
  for (int i = 0; i < 10000; ++i) output.event(left());
  written();  // what the pipe took before it was full
  output.flush();
  const std::string text = written();
  ASSERT_NE(text.find("events were lost"), std::string::npos);
  EXPECT_LE(text.rfind('\n', text.find("events were lost")), 1000u);
}

TEST_F(EventOutputTest, isEmptyOnceTheFileHasTakenAllLines) {
  EventOutput output(write_.fd(), EventOutput::text);
  EXPECT_TRUE(output.isEmpty());
  output.lines(std::string(2 * pageBytes_, 'x'));
  output.flush();
  EXPECT_FALSE(output.isEmpty());
  written();
  output.flush();
  EXPECT_TRUE(output.isEmpty());
}

TEST_F(EventOutputTest, losesNothingThatTheFileTakes) {
  Descriptor file(::open(testing::TempDir().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  ASSERT_TRUE(file.isOpen());
  EventOutput output(file.fd(), EventOutput::text, 1000);
  for (int i = 0; i < 10000; ++i) output.event(left());
  EXPECT_EQ(output.lost(), 0u);
}

TEST_F(EventOutputTest, goesOnWhenNobodyWillReadAnyMore) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  {
    EventOutput output(write_.fd(), EventOutput::text, 1000);
    read_.close();
    for (int i = 0; i < 100; ++i) {
      output.event(left());
      EXPECT_FALSE(output.flush());
    }
    EXPECT_GT(output.lost(), 0u);
  }
  std::signal(SIGPIPE, before);
}

TEST_F(EventOutputTest, finishesAsLongAsTheFileTakesBytes) {
  EventOutput output(write_.fd(), EventOutput::text);
  output.lines(std::string(100 * pageBytes_, 'x'));
  size_t read = 0;
  std::thread reader([&] {
    pollfd wait{.fd = read_.fd(), .events = POLLIN, .revents = 0};
    while (read < 100 * pageBytes_ && poll(&wait, 1, -1) > 0) read += written().size();
  });
  output.finish(Mox::now() + 20.0);
  reader.join();
  EXPECT_EQ(read, 100 * pageBytes_);
}

TEST_F(EventOutputTest, doesNotFinishOnAFullDisk) {
  const Descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  EventOutput output(full.fd(), EventOutput::text);
  output.event(left());
  output.finish(Mox::now() + 0.001);
  EXPECT_FALSE(output.flush());
}

TEST_F(EventOutputTest, doesNotFinishWhenTheFileTakesNothing) {
  EventOutput output(write_.fd(), EventOutput::text);
  output.lines(std::string(3 * pageBytes_, 'x'));
  output.finish(Mox::now() + 0.001);
  EXPECT_EQ(written().size(), pageBytes_);
}

TEST_F(EventOutputTest, aTextLineHasNoControlBytesOfAnInterfacesName) {
  EventOutput output(write_.fd(), EventOutput::text);
  output.event(left("e\x1b[2J"));
  output.flush();
  const std::string text = written();
  EXPECT_THAT(text, HasSubstr("e\\x1b[2J  left 239.1.1.1\n"));
  EXPECT_THAT(text, Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace Agent
