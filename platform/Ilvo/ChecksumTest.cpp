#include <Ilvo/Checksum.h>

#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace Ilvo {
namespace {

// Two bytes at a time, as the definition reads.
U16 slowChecksum(std::span<const U8> bytes) {
  U32 sum = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    sum += i % 2 == 0 ? U32{bytes[i]} << 8 : U32{bytes[i]};
    if (sum > 0xffff) sum -= 0xffff;
  }
  return static_cast<U16>(~sum);
}

TEST(Checksum, ofTheExampleInRfc1071) {
  const std::vector<U8> bytes = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
  EXPECT_EQ(checksum(bytes), static_cast<U16>(~0xddf2));
}

TEST(Checksum, ofNothingIsAllOnes) { EXPECT_EQ(checksum({}), 0xffff); }

TEST(Checksum, padsAnOddLengthWithAZeroByte) {
  EXPECT_EQ(checksum(std::vector<U8>{0x12}), static_cast<U16>(~0x1200));
  EXPECT_EQ(checksum(std::vector<U8>{0x12, 0x34, 0x56}), static_cast<U16>(~(0x1234 + 0x5600)));
}

TEST(Checksum, ofAGeneralQueryWithItsFieldIsZero) {
  const std::vector<U8> query = {0x11, 0x64, 0xee, 0x9b, 0x00, 0x00, 0x00, 0x00};
  EXPECT_EQ(checksum(query), 0);
}

TEST(Checksum, ofAllOnesIsZeroAtAnyLength) {
  for (const std::size_t length : {2U, 4U, 8U, 20U, 65534U}) {
    EXPECT_EQ(checksum(std::vector<U8>(length, 0xff)), 0) << length;
  }
}

TEST(Checksum, equalsTheSlowSumAtEveryLengthAndAlignment) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::vector<U8> bytes(1600);
  for (U8& b : bytes) {
    b = static_cast<U8>(random());
  }
  const std::span<const U8> all(bytes);
  for (std::size_t offset = 0; offset < 8; ++offset) {
    for (std::size_t length = 0; length < 80; ++length) {
      const auto part = all.subspan(offset, length);
      ASSERT_EQ(checksum(part), slowChecksum(part)) << "offset " << offset << " length " << length;
    }
    const auto most = all.subspan(offset, 1591);
    ASSERT_EQ(checksum(most), slowChecksum(most)) << "offset " << offset;
  }
}

}  // namespace
}  // namespace Ilvo
