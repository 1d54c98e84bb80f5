#include "SocketCloser.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <vector>

namespace Agent {
namespace {

struct Pipe {
  Pipe() {
    std::array<int, 2> fds{};
    EXPECT_EQ(pipe(fds.data()), 0);
    readEnd = Descriptor(fds[0]);
    writeEnd = Descriptor(fds[1]);
  }
  // Waits while the write end is open.
  bool isEnded() const {
    char byte = 0;
    return ::read(readEnd.fd(), &byte, 1) == 0;
  }

  Descriptor readEnd;
  Descriptor writeEnd;
};

TEST(SocketCloser, closesInItsOwnTime) {
  Pipe pipe;
  SocketCloser closer;
  closer.close(std::move(pipe.writeEnd));
  EXPECT_TRUE(pipe.isEnded());
}

TEST(SocketCloser, hasClosedMoreThanItHasThreadsForAtItsEnd) {
  std::vector<Pipe> pipes(3 * SocketCloser::mostThreads);
  {
    SocketCloser closer;
    for (Pipe& pipe : pipes) closer.close(std::move(pipe.writeEnd));
  }
  for (const Pipe& pipe : pipes) EXPECT_TRUE(pipe.isEnded());
}

TEST(SocketCloser, closesAgainAfterAllWereClosed) {
  SocketCloser closer;
  for (int round = 0; round < 100; ++round) {
    Pipe pipe;
    closer.close(std::move(pipe.writeEnd));
    EXPECT_TRUE(pipe.isEnded());
  }
}

}  // namespace
}  // namespace Agent
