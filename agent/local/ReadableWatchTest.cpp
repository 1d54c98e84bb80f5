#include <Local/ReadableWatch.h>

#include <array>
#include <memory>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>

namespace Agent {
namespace {

// A pipe: what is written to one end makes the other one readable.
class ReadableWatchTest : public testing::Test {
 protected:
  ReadableWatchTest() { EXPECT_EQ(pipe2(ends_.data(), O_NONBLOCK | O_CLOEXEC), 0); }
  ~ReadableWatchTest() override {
    for (const int end : ends_) close(end);
  }
  int readEnd() const { return ends_[0]; }
  void write(char c) { EXPECT_EQ(::write(ends_[1], &c, 1), 1); }
  char read() {
    char c = '-';
    EXPECT_EQ(::read(ends_[0], &c, 1), 1);
    return c;
  }
  // All that can be done without waiting for the descriptor.
  void poll() {
    io_.restart();
    io_.poll();
  }

  boost::asio::io_context io_;
  std::string marks_;

 private:
  std::array<int, 2> ends_{};
};

TEST_F(ReadableWatchTest, callsBackWheneverThereIsSomething) {
  const ReadableWatch watch(io_, readEnd(), [this] { marks_ += read(); });
  poll();
  EXPECT_EQ(marks_, "");
  write('a');
  write('b');
  poll();
  EXPECT_EQ(marks_, "ab");
  write('c');
  poll();
  EXPECT_EQ(marks_, "abc");
}

TEST_F(ReadableWatchTest, doesNotCallBackAfterItsEnd) {
  auto watch = std::make_unique<ReadableWatch>(io_, readEnd(), [this] { marks_ += read(); });
  poll();
  write('a');
  watch.reset();
  poll();
  EXPECT_EQ(marks_, "");
  EXPECT_TRUE(io_.stopped()) << "nothing waits any more";
}

TEST_F(ReadableWatchTest, canBeEndedByItsCallback) {
  std::unique_ptr<ReadableWatch> watch;
  watch = std::make_unique<ReadableWatch>(io_, readEnd(), [&] {
    watch.reset();
    marks_ += read();  // what is being called is still there
  });
  write('a');
  write('b');
  poll();
  EXPECT_EQ(marks_, "a");
}

TEST_F(ReadableWatchTest, leavesTheDescriptorOpen) {
  {
    const ReadableWatch watch(io_, readEnd(), [] {});
  }
  poll();
  write('a');
  EXPECT_EQ(read(), 'a');
}

}  // namespace
}  // namespace Agent
