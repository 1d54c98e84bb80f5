// The machines that move the attribute log over a real socket, one that can be full.
#include <string>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include <NboAttrLog/SocketInSm.h>
#include <NboAttrLog/SocketOutSm.h>
#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

// Two connected sockets; a few frames fill the first one.
class SocketPair {
 public:
  SocketPair() {
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends_), 0);
    const int bytes = 4096;
    EXPECT_EQ(::setsockopt(ends_[0], SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes), 0);
  }
  ~SocketPair() {
    hangUp(0);
    hangUp(1);
  }
  SocketPair(const SocketPair&) = delete;
  SocketPair& operator=(const SocketPair&) = delete;

  int operator[](int end) const { return ends_[end]; }
  void hangUp(int end) {
    if (ends_[end] >= 0) ::close(ends_[end]);
    ends_[end] = -1;
  }

 private:
  int ends_[2] = {-1, -1};
};

class SocketSmTest : public testing::Test {
 protected:
  SocketSmTest() { directory_.entryIs("root/a", root_, Access::configurable); }

  // Sends as much as the socket takes now.
  Moved fill() {
    Moved moved = Moved::all;
    for (bool built = true; built && moved == Moved::all;) {
      server_.drain();
      built = !server_.stream().pending().empty();
      moved = out_.handleWritable();
    }
    return moved;
  }
  // Both directions, until neither socket nor stream holds anything.
  void settle() {
    for (int still = 0; still < 2; ++still) {
      if (fill() == Moved::blocked) still = 0;
      while (copyIn_.handleReadable() == Moved::all) still = 0;
      copy_.drain();
      if (!copy_.stream().pending().empty()) still = 0;
      ASSERT_EQ(copyOut_.handleWritable(), Moved::all);
      while (in_.handleReadable() == Moved::all) still = 0;
    }
  }

  SocketPair ends_;
  TestHost serveHost_;
  TestHost copyHost_;
  Directory directory_;
  Ptr<Root> root_ = makePtr<Root>("a");
  Session server_{
      serveHost_, {.name = "agent", .peerName = "copy", .rights = Rights::configure}, &directory_};
  Session copy_{copyHost_, {.name = "copy", .peerName = "agent"}};
  StreamSocketOutSm out_{ends_[0], server_.stream()};
  SocketInSm in_{ends_[0], server_};
  StreamSocketOutSm copyOut_{ends_[1], copy_.stream()};
  SocketInSm copyIn_{ends_[1], copy_};
};

TEST_F(SocketSmTest, copyFollowsThroughTheSocket) {
  root_->countIs(3);
  settle();
  EXPECT_EQ(copyHost_.events(), "root(root/a) current ");
  root_->nodeIs(7)->usesIs(2);
  settle();
  EXPECT_EQ(copyHost_.copy("root/a")->count(), 3u);
  EXPECT_EQ(copyHost_.copy("root/a")->node(7)->uses(), 2u);
  copyHost_.copy("root/a")->enabledIs(true);
  settle();
  EXPECT_TRUE(root_->enabled());
}

TEST_F(SocketSmTest, fullSocketBlocksAndWhatWaitsIsSentOnceItIsEmptied) {
  settle();
  Moved moved = Moved::all;
  for (U32 key = 1; moved == Moved::all; ++key) {
    ASSERT_LT(key, 10000u);
    root_->nodeIs(key);
    moved = out_.handleWritable();
  }
  EXPECT_EQ(moved, Moved::blocked);
  EXPECT_EQ(out_.handleWritable(), Moved::blocked);
  EXPECT_FALSE(server_.stream().pending().empty());
  for (U32 key = 1; server_.allSent(); ++key) root_->nodeIs(100000 + key);  // the stream as well
  root_->countIs(1);
  root_->countIs(2);
  settle();
  EXPECT_EQ(copyHost_.copy("root/a")->count(), 2u);
  EXPECT_EQ(copyHost_.copy("root/a")->nodes(), root_->nodes());
  EXPECT_TRUE(server_.allSent());
}

TEST_F(SocketSmTest, bytesThatTheSocketTookAreCounted) {
  EXPECT_EQ(out_.bytesTaken(), 0u);
  const size_t hello = server_.stream().pending().size();
  EXPECT_EQ(out_.handleWritable(), Moved::all);
  EXPECT_EQ(out_.bytesTaken(), hello);
}

TEST_F(SocketSmTest, bytesThatLeftBeforeTheSocketWasFullAreCountedAndLeaveTheStream) {
  settle();
  const U64 before = out_.bytesTaken();
  size_t built = 0;
  Moved moved = Moved::all;
  for (U32 key = 1; moved == Moved::all; ++key) {
    ASSERT_LT(key, 10000u);
    const size_t waiting = server_.stream().pending().size();
    while (server_.stream().sufficientBuffer()) root_->countInc(1);
    built += server_.stream().pending().size() - waiting;
    moved = out_.handleWritable();
  }
  const size_t left = server_.stream().pending().size();
  EXPECT_EQ(moved, Moved::blocked);
  EXPECT_EQ(out_.bytesTaken() - before, built - left);
  EXPECT_GT(out_.bytesTaken(), before);
}

TEST_F(SocketSmTest, emptySocketGivesNothingNow) {
  EXPECT_EQ(in_.handleReadable(), Moved::blocked);
}

TEST_F(SocketSmTest, hangingUpEndsBothDirections) {
  ends_.hangUp(1);
  EXPECT_EQ(in_.handleReadable(), Moved::ended);
  EXPECT_EQ(out_.handleWritable(), Moved::ended);  // and no signal ends the process
}

TEST_F(SocketSmTest, framesThatCannotBeEndTheConnection) {
  const char garbage[] = "GET / HTTP/1.1\r\n\r\n";
  ASSERT_EQ(::send(ends_[1], garbage, sizeof garbage, 0), static_cast<ssize_t>(sizeof garbage));
  EXPECT_EQ(in_.handleReadable(), Moved::ended);
  EXPECT_EQ(server_.fault(), "a frame of an impossible length");
}

TEST_F(SocketSmTest, oneCallTakesABoundedNumberOfBytes) {
  const std::vector<U8> question = framed("0a 00000001");
  std::vector<U8> bytes = framed(helloFrame);
  while (bytes.size() < SocketInSm::atOnce + 1000) {
    bytes.insert(bytes.end(), question.begin(), question.end());
  }
  const auto sent = ::send(ends_[1], bytes.data(), bytes.size(), 0);
  ASSERT_EQ(sent, static_cast<ssize_t>(bytes.size()));
  EXPECT_EQ(in_.handleReadable(), Moved::all);
  std::vector<U8> rest(bytes.size());
  const auto left = ::recv(ends_[0], rest.data(), rest.size(), MSG_DONTWAIT);
  EXPECT_EQ(left, static_cast<ssize_t>(bytes.size() - SocketInSm::atOnce));
}

TEST_F(SocketSmTest, machineGivesTheSocketOfTheLog) {
  const SocketOutSm& machine = out_;
  EXPECT_EQ(machine.connectionFd(), ends_[0]);
  EXPECT_EQ(machine.sockFd(), 0);
}

}  // namespace
}  // namespace Mox::NboAttrLog
