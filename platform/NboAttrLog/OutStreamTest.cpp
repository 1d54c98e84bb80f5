#include <NboAttrLog/OutStream.h>

#include <string>

#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

class OutStreamTest : public testing::Test {
 protected:
  // A frame of that many bytes, head included.
  void put(size_t bytes, U8 fill) {
    out_.begin(FrameType::refusal);
    for (size_t byte = frameHead; byte < bytes; ++byte) out_.u8(fill);
    out_.end();
  }

  OutStream out_{OutStream::leastCapacity};
};

TEST_F(OutStreamTest, frameBeginsWithTheLengthOfWhatFollows) {
  out_.begin(FrameType::rootGone);
  out_.u32(7);
  out_.end();
  EXPECT_EQ(hexOf(out_.pending()), "00050300000007");
}

TEST_F(OutStreamTest, isSufficientWhileTheLongestFrameAndTheEndMarkersFit) {
  put(longestFrame, 0);
  EXPECT_EQ(out_.capacity() - out_.pending().size(), OutStream::sufficient + 128u);
  EXPECT_TRUE(out_.sufficientBuffer());
  put(128, 0);
  EXPECT_TRUE(out_.sufficientBuffer());
  put(frameHead, 0);
  EXPECT_FALSE(out_.sufficientBuffer());
  out_.taken(frameHead);
  EXPECT_TRUE(out_.sufficientBuffer());
}

TEST_F(OutStreamTest, lessThanTheLeastCapacityIsNotGiven) {
  EXPECT_EQ(OutStream(1).capacity(), OutStream::leastCapacity);
}

TEST_F(OutStreamTest, bytesComeOutInOrderWhereverTheyWereTaken) {
  FrameTaker taker;
  Frames taken;
  for (U8 fill = 1; fill < 200; ++fill) {
    if (out_.sufficientBuffer()) put(400, fill);
    for (auto& frame : taker.take(out_, 331)) taken.push_back(frame);
  }
  ASSERT_GT(taken.size(), 100u);
  U8 last = 0;
  for (const std::string& frame : taken) {
    const auto bytes = bytesOf(frame);
    EXPECT_GT(bytes[1], last);
    last = bytes[1];
    EXPECT_EQ(frame, "0c" + hexOf(std::vector<U8>(397, last)));
  }
}

TEST_F(OutStreamTest, frameThatIsTooLongIsABug) {
  EXPECT_DEATH(put(longestFrame + 1, 0), "a frame is too long");
}

TEST_F(OutStreamTest, fieldForWhichThereIsNoRoomIsABug) {
  EXPECT_DEATH(
      {
        put(longestFrame, 0);
        put(longestFrame, 0);
        put(longestFrame, 0);
      },
      "without room");
}

TEST_F(OutStreamTest, takingMoreThanThereIsIsABug) {
  put(10, 0);
  EXPECT_DEATH(out_.taken(11), "more was taken");
}

}  // namespace
}  // namespace Mox::NboAttrLog
