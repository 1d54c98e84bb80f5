#include "IgmpFilter.h"

#include <array>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <Local/Descriptor.h>
#include <MoxBase/Types.h>

namespace Agent {
namespace {

using Mox::U8;
using Bytes = std::vector<U8>;

// The kernel runs the same filter on any socket of datagrams.
class IgmpFilterTest : public testing::Test {
 protected:
  IgmpFilterTest() {
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    in_ = Descriptor(ends[0]);
    out_ = Descriptor(ends[1]);
    EXPECT_TRUE(igmpFilterIs(out_.fd()));
  }

  bool passes(const Bytes& frame) {
    send(in_.fd(), frame.data(), frame.size(), 0);
    Bytes got(frame.size() + 1);
    const ssize_t bytes = recv(out_.fd(), got.data(), got.size(), 0);
    return bytes == static_cast<ssize_t>(frame.size());
  }

  static Bytes frameOf(const Bytes& tags, U8 protocol = 2, U8 typeLow = 0x00) {
    Bytes frame(12, 0x02);
    frame.insert(frame.end(), tags.begin(), tags.end());
    frame.insert(frame.end(), {0x08, typeLow, 0x46, 0xc0, 0, 32, 0, 0, 0x40, 0, 1, protocol});
    frame.resize(frame.size() + 22);
    return frame;
  }

  Descriptor in_;
  Descriptor out_;
};

TEST_F(IgmpFilterTest, passesIgmpInIpv4) { EXPECT_TRUE(passes(frameOf({}))); }

TEST_F(IgmpFilterTest, passesIgmpBehindOneOrTwoTags) {
  EXPECT_TRUE(passes(frameOf({0x81, 0x00, 0x00, 0x05})));
  EXPECT_TRUE(passes(frameOf({0x88, 0xa8, 0x00, 0x05})));
  EXPECT_TRUE(passes(frameOf({0x91, 0x00, 0x00, 0x05})));
  EXPECT_TRUE(passes(frameOf({0x88, 0xa8, 0x00, 0x05, 0x81, 0x00, 0x00, 0x06})));
  EXPECT_TRUE(passes(frameOf({0x81, 0x00, 0x00, 0x05, 0x88, 0xa8, 0x00, 0x06})));
  EXPECT_TRUE(passes(frameOf({0x91, 0x00, 0x00, 0x05, 0x81, 0x00, 0x00, 0x06})));
  EXPECT_TRUE(passes(frameOf({0x91, 0x00, 0x00, 0x05, 0x91, 0x00, 0x00, 0x06})));
}

TEST_F(IgmpFilterTest, refusesOtherProtocolsBehindAnyNumberOfTags) {
  EXPECT_FALSE(passes(frameOf({}, 17)));
  EXPECT_FALSE(passes(frameOf({0x81, 0x00, 0x00, 0x05}, 17)));
  EXPECT_FALSE(passes(frameOf({0x91, 0x00, 0x00, 0x05}, 17)));
  EXPECT_FALSE(passes(frameOf({0x88, 0xa8, 0x00, 0x05, 0x81, 0x00, 0x00, 0x06}, 17)));
}

TEST_F(IgmpFilterTest, refusesOtherTypes) {
  EXPECT_FALSE(passes(frameOf({}, 2, 0x06)));
  EXPECT_FALSE(passes(frameOf({0x81, 0x00, 0x00, 0x05}, 2, 0x06)));
  EXPECT_FALSE(passes(frameOf({0x88, 0xa8, 0x00, 0x05, 0x81, 0x00, 0x00, 0x06}, 2, 0x06)));
  EXPECT_FALSE(passes(frameOf({0x81, 0, 0, 5, 0x81, 0, 0, 6, 0x81, 0, 0, 7})));
}

TEST_F(IgmpFilterTest, refusesAFrameThatEndsBeforeItsProtocol) {
  Bytes frame = frameOf({});
  frame.resize(23);
  EXPECT_FALSE(passes(frame));
  frame.push_back(2);
  EXPECT_TRUE(passes(frame));
}

TEST_F(IgmpFilterTest, ofASocketThatOnlySendsRefusesEverything) {
  EXPECT_TRUE(refuseAllFilterIs(out_.fd()));
  EXPECT_FALSE(passes(frameOf({})));
}

}  // namespace
}  // namespace Agent
