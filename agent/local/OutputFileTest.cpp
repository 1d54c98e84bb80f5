#include <Local/OutputFile.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Agent {
namespace {

// Two ends of something that takes a limited number of bytes unless the other end is read.
struct Ends {
  Descriptor read;
  Descriptor write;
};

Ends pipeEnds() {
  std::array<int, 2> fds{};
  EXPECT_EQ(pipe2(fds.data(), O_CLOEXEC), 0);
  return {Descriptor(fds[0]), Descriptor(fds[1])};
}

Ends socketEnds() {
  std::array<int, 2> fds{};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds.data()), 0);
  return {Descriptor(fds[0]), Descriptor(fds[1])};
}

size_t emptied(int fd) {
  std::string bytes(1 << 20, '\0');
  size_t read = 0;
  fcntl(fd, F_SETFL, O_NONBLOCK);
  for (ssize_t got = 0; (got = ::read(fd, bytes.data(), bytes.size())) > 0;) {
    read += static_cast<size_t>(got);
  }
  return read;
}

Ends terminalEnds() {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_EQ(grantpt(master), 0);
  EXPECT_EQ(unlockpt(master), 0);
  const int side = ::open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_GE(side, 0);
  EXPECT_EQ(fchmod(side, 0600), 0);
  return {Descriptor(master), Descriptor(side)};
}

class OutputFileTest : public testing::TestWithParam<Ends (*)()> {};

INSTANTIATE_TEST_SUITE_P(, OutputFileTest, testing::Values(&pipeEnds, &socketEnds),
                         [](const auto& made) { return made.index == 0 ? "pipe" : "socket"; });

TEST_P(OutputFileTest, takesWhatThereIsRoomForAndDoesNotWait) {
  const Ends ends = GetParam()();
  OutputFile out(ends.write.fd());
  const std::string much(8 << 20, 'x');
  const size_t taken = out.write(much);
  EXPECT_GT(taken, 0u);
  EXPECT_LT(taken, much.size());
  EXPECT_EQ(out.write("more"), 0u);
  EXPECT_FALSE(out.waitWritable(std::chrono::milliseconds(1)));
  EXPECT_EQ(emptied(ends.read.fd()), taken);
  EXPECT_TRUE(out.waitWritable(std::chrono::milliseconds(1)));
  EXPECT_EQ(out.write("more"), 4u);
}

TEST_P(OutputFileTest, leavesTheFlagsOfTheDescriptorAlone) {
  const Ends ends = GetParam()();
  const OutputFile out(ends.write.fd());
  EXPECT_EQ(fcntl(ends.write.fd(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_P(OutputFileTest, takesNothingWhenTheOtherEndIsClosed) {
  Ends ends = GetParam()();
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  OutputFile out(ends.write.fd());
  ends.read.close();
  EXPECT_EQ(out.write("text"), 0u);
  std::signal(SIGPIPE, before);
}

// Somebody else's: the descriptor was handed down by a process with more rights.
class OutputFileOfAnotherUser : public testing::TestWithParam<Ends (*)()> {};

INSTANTIATE_TEST_SUITE_P(, OutputFileOfAnotherUser, testing::Values(&pipeEnds, &terminalEnds),
                         [](const auto& made) { return made.index == 0 ? "pipe" : "terminal"; });

// A terminal hands on what it took a little later, so that it may have room again at any time.
TEST_P(OutputFileOfAnotherUser, takesWhatThereIsRoomForAndDoesNotWait) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be another user";
  const Ends ends = GetParam()();
  ASSERT_EQ(seteuid(65534), 0);
  OutputFile out(ends.write.fd());
  ASSERT_EQ(seteuid(0), 0);
  const int flags = fcntl(ends.write.fd(), F_GETFL);
  const std::string much(1 << 20, 'x');
  const size_t taken = out.write(much);
  EXPECT_GT(taken, 0u);
  EXPECT_LT(taken, much.size());
  EXPECT_EQ(fcntl(ends.write.fd(), F_GETFL), flags);
  EXPECT_GT(emptied(ends.read.fd()), 0u);
  EXPECT_TRUE(out.waitWritable(std::chrono::seconds(10)));
  EXPECT_GT(out.write("more"), 0u);
}

TEST(OutputFileOfADisk, continuesWhereTheDescriptorStands) {
  const std::string path = testing::TempDir() + "OutputFileTest." + std::to_string(getpid());
  const Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  ASSERT_EQ(::write(file.fd(), "one", 3), 3);
  OutputFile out(file.fd());
  EXPECT_EQ(out.write("two"), 3u);
  std::array<char, 16> bytes{};
  EXPECT_EQ(pread(file.fd(), bytes.data(), bytes.size(), 0), 6);
  EXPECT_STREQ(bytes.data(), "onetwo");
  unlink(path.c_str());
}

TEST(OutputFileOfAFullDisk, takesNothing) {
  const Descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  OutputFile out(full.fd());
  EXPECT_EQ(out.write("text"), 0u);
}

}  // namespace
}  // namespace Agent
