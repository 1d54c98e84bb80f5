#include <Link/RingSize.h>

#include <algorithm>

#include <gtest/gtest.h>
#include <unistd.h>

namespace Agent {
namespace {

constexpr std::size_t kib = 1024;
constexpr std::size_t mib = 1024 * kib;

TEST(RingSize, isFourMebibytesForUpToSixteenLinks) {
  EXPECT_EQ(ringSizeFor(1).bytes, 4 * mib);
  EXPECT_EQ(ringSizeFor(16).bytes, 4 * mib);
}

TEST(RingSize, sharesSixtyFourMebibytesEvenlyBeyond) {
  EXPECT_EQ(ringSizeFor(32).bytes, 2 * mib);
  EXPECT_EQ(ringSizeFor(256).bytes, 256 * kib);
  EXPECT_LE(1000 * ringSizeFor(1000).bytes, 64 * mib);
}

TEST(RingSize, isNeverLessThanFourLongBlocks) { EXPECT_EQ(ringSizeFor(100000).bytes, 64 * kib); }

TEST(RingSize, isTheSizeThatWasAskedFor) { EXPECT_EQ(ringSizeFor(1000, 8 * mib).bytes, 8 * mib); }

// So that the kernel looks at no more than 64 rings a millisecond.
TEST(RingSize, hasALongerTimeoutForMoreLinks) {
  EXPECT_EQ(ringSizeFor(1).blockTimeout.count(), 1);
  EXPECT_EQ(ringSizeFor(64).blockTimeout.count(), 1);
  EXPECT_EQ(ringSizeFor(65).blockTimeout.count(), 2);
  EXPECT_EQ(ringSizeFor(1000).blockTimeout.count(), 16);
}

TEST(RingSize, hasTheShortestBlocksForTheLongestFrameOfALink) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  EXPECT_EQ(ringBlockBytes(1500), std::max(page, 2 * kib));
  EXPECT_EQ(ringBlockBytes(9000), std::max(page, 16 * kib));
  EXPECT_EQ(ringBlockBytes(16384), std::max(page, 32 * kib));
  EXPECT_EQ(ringBlockBytes(65535), 128 * kib);
}

}  // namespace
}  // namespace Agent
