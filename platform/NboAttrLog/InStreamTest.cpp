#include <NboAttrLog/InStream.h>

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

TEST(ReaderTest, readsNumbersInNetworkByteOrder) {
  const auto bytes = bytesOf("01 0203 04050607 08090a0b0c0d0e0f 3ff8000000000000");
  Reader in(bytes);
  EXPECT_EQ(in.u8(), 0x01);
  EXPECT_EQ(in.u16(), 0x0203);
  EXPECT_EQ(in.u32(), 0x04050607u);
  EXPECT_EQ(in.u64(), 0x08090a0b0c0d0e0fu);
  EXPECT_EQ(in.seconds(), 1.5);
  EXPECT_TRUE(in.complete());
}

TEST(ReaderTest, isNotCompleteWhileBytesAreLeft) {
  const auto bytes = bytesOf("0102");
  Reader in(bytes);
  in.u8();
  EXPECT_TRUE(in.ok());
  EXPECT_FALSE(in.atEnd());
  EXPECT_FALSE(in.complete());
}

TEST(ReaderTest, tooFewBytesGiveZerosAndAreNotOkUntilTheEnd) {
  const auto bytes = bytesOf("010203");
  Reader in(bytes);
  EXPECT_EQ(in.u32(), 0u);
  EXPECT_FALSE(in.ok());
  EXPECT_EQ(in.u8(), 0);  // the bytes that were left are not read
  EXPECT_TRUE(in.atEnd());
  EXPECT_FALSE(in.complete());
}

TEST(ReaderTest, readsATextOfTheLongestLength) {
  const auto bytes = bytesOf(textHex(std::string(255, 'x')));
  Reader in(bytes);
  EXPECT_EQ(in.text(), std::string(255, 'x'));
  EXPECT_TRUE(in.complete());
}

TEST(ReaderTest, refusesATextThatIsTooLongThoughItIsThere) {
  const auto bytes = bytesOf(textHex(std::string(256, 'x')));
  Reader in(bytes);
  EXPECT_EQ(in.text(), "");
  EXPECT_FALSE(in.ok());
}

TEST(ReaderTest, refusesATextThatReachesBeyondTheEnd) {
  const auto bytes = bytesOf("0003 6162");
  Reader in(bytes);
  EXPECT_EQ(in.text(), "");
  EXPECT_FALSE(in.ok());
}

TEST(ReaderTest, refusesAFlagThatIsNeitherZeroNorOne) {
  const auto bytes = bytesOf("00 01 02");
  Reader in(bytes);
  EXPECT_EQ(in.value(ValueKind::flag), Value(false));
  EXPECT_EQ(in.value(ValueKind::flag), Value(true));
  EXPECT_TRUE(in.ok());
  in.value(ValueKind::flag);
  EXPECT_FALSE(in.ok());
}

TEST(ReaderTest, readsAConstructionArgumentOfEachKind) {
  const auto bytes = bytesOf(
      "00 01 01 02 00000007 03 0000000000000008 04 3ff8000000000000"
      "05 0001 61");
  Reader in(bytes);
  EXPECT_EQ(in.argument(), Value());
  EXPECT_EQ(in.argument(), Value(true));
  EXPECT_EQ(in.argument(), Value(U64{7}));
  EXPECT_EQ(in.argument(), Value(U64{8}));
  EXPECT_EQ(in.argument(), Value(1.5));
  EXPECT_EQ(in.argument(), Value(std::string("a")));
  EXPECT_TRUE(in.complete());
}

TEST(ReaderTest, refusesAConstructionArgumentOfAnUnknownKind) {
  const auto bytes = bytesOf("06 00");
  Reader in(bytes);
  EXPECT_EQ(in.argument(), Value());
  EXPECT_FALSE(in.ok());
}

TEST(ReaderTest, readsAReferenceToTheDeepestEntity) {
  const auto bytes = bytesOf("00000009 04 00000001 00000002 00000003 00000004");
  Reader in(bytes);
  EXPECT_EQ(in.ref(), (Ref{.root = 9, .depth = 4, .keys = {1, 2, 3, 4}}));
  EXPECT_TRUE(in.complete());
}

TEST(ReaderTest, refusesAReferenceThatIsDeeper) {
  const auto bytes = bytesOf("00000009 05 00000001 00000002 00000003 00000004 00000005");
  Reader in(bytes);
  in.ref();
  EXPECT_FALSE(in.ok());
}

TEST(ReaderTest, refusesAReferenceWithFewerKeysThanItsDepth) {
  const auto bytes = bytesOf("00000009 02 00000001 0000");
  Reader in(bytes);
  in.ref();
  EXPECT_FALSE(in.ok());
}

class InStreamTest : public testing::Test {
 protected:
  bool take(std::string_view hex) { return takeBytes(bytesOf(hex)); }
  bool takeBytes(std::span<const U8> bytes) {
    return in_.take(bytes, [&](std::span<const U8> frame) {
      taken_ += hexOf(frame) + " ";
      return taken_ != stopAt_;
    });
  }
  std::string taken() { return std::exchange(taken_, {}); }

  InStream in_;
  std::string taken_;
  std::string stopAt_ = "never";
};

TEST_F(InStreamTest, framesComeOutOneByOne) {
  EXPECT_TRUE(take("0001 09 0002 0aff"));
  EXPECT_EQ(taken(), "09 0aff ");
}

TEST_F(InStreamTest, frameMayBeSplitAnywhere) {
  const auto bytes = bytesOf("0003 0a0102 0001 09 0002 0bff");
  for (size_t at = 0; at <= bytes.size(); ++at) {
    SCOPED_TRACE(at);
    in_ = {};
    EXPECT_TRUE(takeBytes(std::span(bytes).first(at)));
    EXPECT_TRUE(takeBytes(std::span(bytes).subspan(at)));
    EXPECT_EQ(taken(), "0a0102 09 0bff ");
  }
}

TEST_F(InStreamTest, frameMayComeByteByByte) {
  for (const U8 byte : bytesOf("0003 0a0102 0001 09")) EXPECT_TRUE(takeBytes({&byte, 1}));
  EXPECT_EQ(taken(), "0a0102 09 ");
}

TEST_F(InStreamTest, halfAFrameIsNotTaken) {
  EXPECT_TRUE(take("0004 0a0102"));
  EXPECT_EQ(taken(), "");
}

TEST_F(InStreamTest, longestFrameIsTaken) {
  EXPECT_TRUE(takeBytes(framed(std::string(2 * 1022, '0'))));
  EXPECT_EQ(taken(), std::string(2 * 1022, '0') + " ");
}

TEST_F(InStreamTest, frameThatIsTooLongEndsTheStreamBeforeItHasCome) {
  EXPECT_FALSE(take("03ff"));
  EXPECT_TRUE(in_.malformed());
  EXPECT_EQ(taken(), "");
}

TEST_F(InStreamTest, frameWithoutATypeEndsTheStream) {
  EXPECT_FALSE(take("0000"));
  EXPECT_TRUE(in_.malformed());
}

TEST_F(InStreamTest, nothingIsTakenAfterAFrameThatWasRefused) {
  stopAt_ = "09 ";
  EXPECT_FALSE(take("0001 09 0001 09"));
  EXPECT_EQ(taken(), "09 ");
  EXPECT_FALSE(in_.malformed());
}

}  // namespace
}  // namespace Mox::NboAttrLog
