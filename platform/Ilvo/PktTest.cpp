#include <Ilvo/Pkt.h>

#include <cstdint>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ilvo {
namespace {

using testing::Each;
using testing::ElementsAre;

Mox::Ptr<Pkt> pktOf(const std::vector<U8>& bytes) { return Mox::makePtr<Pkt>(bytes); }

TEST(Pkt, readsNetworkOrderFromItsFront) {
  const auto pkt = pktOf({0x99, 0x01, 0x02, 0x83, 0x04});
  pkt->frontOffsetInc(1);
  EXPECT_EQ(pkt->u8(2), 0x83);
  EXPECT_EQ(pkt->u16(1), 0x0283);
  EXPECT_EQ(pkt->u32(0), 0x01028304u);
  EXPECT_EQ(pkt->ipAddr(0), IpAddr(1, 2, 131, 4));
}

TEST(Pkt, writesNetworkOrderFromItsFront) {
  const auto pkt = pktOf(std::vector<U8>(12));
  pkt->frontOffsetInc(1);
  pkt->u8Is(0, 0x11);
  pkt->u16Is(1, 0xa2b3);
  pkt->u32Is(3, 0xdeadbeef);
  pkt->ipAddrIs(7, IpAddr(239, 1, 2, 3));
  pkt->offsetsReset();
  EXPECT_THAT(pkt->data(), ElementsAre(0, 0x11, 0xa2, 0xb3, 0xde, 0xad, 0xbe, 0xef, 239, 1, 2, 3));
}

TEST(Pkt, hasWhatLiesBetweenFrontAndEnd) {
  const auto pkt = pktOf({1, 2, 3, 4, 5});
  pkt->frontOffsetInc(1);
  pkt->endOffsetDec(2);
  EXPECT_EQ(pkt->offsetBytes(), 2u);
  EXPECT_THAT(pkt->data(), ElementsAre(2, 3));
  EXPECT_TRUE(pkt->has(0));
  EXPECT_TRUE(pkt->has(2));
  EXPECT_FALSE(pkt->has(3));
  EXPECT_FALSE(pkt->has(SIZE_MAX));
}

TEST(Pkt, givesBackAllBytesWhenOffsetsAreReset) {
  const auto pkt = pktOf({1, 2, 3});
  pkt->frontOffsetInc(2);
  pkt->endOffsetDec(1);
  EXPECT_EQ(pkt->offsetBytes(), 0u);
  pkt->offsetsReset();
  EXPECT_THAT(pkt->data(), ElementsAre(1, 2, 3));
}

TEST(Pkt, keepsItsOwnCopy) {
  std::vector<U8> bytes = {1, 2, 3};
  const auto pkt = pktOf(bytes);
  bytes[0] = 9;
  EXPECT_EQ(pkt->u8(0), 1);
}

TEST(Pkt, holdsMoreThanFitsIntoTheObject) {
  for (const std::size_t size : {0U, 1U, 127U, 128U, 129U, 1500U, 65535U}) {
    std::vector<U8> bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
      bytes[i] = static_cast<U8>(i * 7);
    }
    EXPECT_THAT(pktOf(bytes)->data(), testing::ElementsAreArray(bytes)) << size;
  }
}

TEST(Pkt, holdsOtherBytesInItsMemory) {
  const auto pkt = pktOf(std::vector<U8>(1000, 0x5a));
  const U8* const end = pkt->data().data() + 1000;
  for (const size_t size : {size_t{1}, size_t{0}, size_t{999}, size_t{1000}}) {
    pkt->frontOffsetInc(pkt->offsetBytes() / 2);
    pkt->endOffsetDec(pkt->offsetBytes());
    pkt->bytesIs(std::vector<U8>(size, 0x11));
    EXPECT_EQ(pkt->offsetBytes(), size);
    EXPECT_THAT(pkt->data(), Each(0x11));
    EXPECT_EQ(pkt->data().data() + size, end);
  }
}

TEST(Pkt, holdsMoreOtherBytesThanItHadRoomFor) {
  const auto pkt = pktOf({1, 2, 3});
  for (const size_t size : {size_t{100}, size_t{128}, size_t{129}, size_t{2000}}) {
    pkt->bytesIs(std::vector<U8>(size, static_cast<U8>(size)));
    EXPECT_EQ(pkt->offsetBytes(), size);
    EXPECT_THAT(pkt->data(), Each(static_cast<U8>(size)));
  }
  pkt->reserveHead(4);
  EXPECT_EQ(pkt->offsetBytes(), 2004u);
}

TEST(Pkt, withHeadroomIsEmptyUntilHeadIsReserved) {
  const auto pkt = Mox::makePtr<Pkt>(12U);
  EXPECT_EQ(pkt->offsetBytes(), 0u);
  pkt->offsetsReset();
  EXPECT_EQ(pkt->offsetBytes(), 0u);
  pkt->reserveHead(12);
  EXPECT_EQ(pkt->offsetBytes(), 12u);
  EXPECT_THAT(pkt->data(), Each(0));
}

TEST(Pkt, reservesHeadBeyondItsRoomAtAnySize) {
  for (const std::size_t body : {0U, 1U, 100U, 128U, 300U}) {
    for (const std::size_t head : {0U, 1U, 27U, 28U, 29U, 2000U}) {
      const auto pkt = pktOf(std::vector<U8>(body, 0x55));
      pkt->reserveHead(head);
      ASSERT_EQ(pkt->offsetBytes(), head + body);
      EXPECT_THAT(pkt->data().first(head), Each(0)) << head << " before " << body;
      EXPECT_THAT(pkt->data().subspan(head), Each(0x55)) << head << " before " << body;
    }
  }
}

TEST(Pkt, reservesHeadAgainAndAgain) {
  const auto pkt = Mox::makePtr<Pkt>();
  for (U8 i = 0; i < 200; ++i) {
    pkt->reserveHead(1);
    pkt->u8Is(0, i);
  }
  ASSERT_EQ(pkt->offsetBytes(), 200u);
  for (U8 i = 0; i < 200; ++i) {
    EXPECT_EQ(pkt->u8(i), 199 - i);
  }
}

TEST(Pkt, zeroesWhatStoodBeforeTheFrontWhenHeadIsReserved) {
  const auto pkt = pktOf({1, 2, 3, 4});
  pkt->frontOffsetInc(3);
  pkt->reserveHead(2);
  EXPECT_THAT(pkt->data(), ElementsAre(0, 0, 4));
  pkt->offsetsReset();
  EXPECT_THAT(pkt->data(), ElementsAre(1, 0, 0, 4));
}

TEST(Pkt, keepsBytesCutFromTheEndWhenHeadIsReserved) {
  const auto pkt = pktOf({1, 2, 3});
  pkt->endOffsetDec(1);
  pkt->reserveHead(1);
  EXPECT_THAT(pkt->data(), ElementsAre(0, 1, 2));
  pkt->offsetsReset();
  EXPECT_THAT(pkt->data(), ElementsAre(0, 1, 2, 3));
}

TEST(PktDeathTest, readingPastTheEndIsFatal) {
  const auto pkt = pktOf({1, 2, 3, 4, 5});
  pkt->endOffsetDec(1);
  EXPECT_EQ(pkt->u32(0), 0x01020304u);
  EXPECT_DEATH(pkt->u8(4), "Ilvo:.*has\\( at \\+ n \\)");
  EXPECT_DEATH(pkt->u16(3), "Ilvo");
  EXPECT_DEATH(pkt->u32(1), "Ilvo");
  EXPECT_DEATH(pkt->ipAddr(1), "Ilvo");
  EXPECT_DEATH(pkt->u16(SIZE_MAX), "Ilvo");
}

TEST(PktDeathTest, writingPastTheEndIsFatal) {
  const auto pkt = pktOf({1, 2, 3, 4});
  EXPECT_DEATH(pkt->u8Is(4, 0), "Ilvo");
  EXPECT_DEATH(pkt->u16Is(3, 0), "Ilvo");
  EXPECT_DEATH(pkt->u32Is(1, 0), "Ilvo");
  EXPECT_DEATH(pkt->ipAddrIs(SIZE_MAX - 1, IpAddr()), "Ilvo");
}

TEST(PktDeathTest, movingAnOffsetPastTheOtherIsFatal) {
  const auto pkt = pktOf({1, 2, 3, 4});
  EXPECT_DEATH(pkt->frontOffsetInc(5), "has\\( n \\)");
  EXPECT_DEATH(pkt->endOffsetDec(5), "has\\( n \\)");
}

TEST(PktDeathTest, reservingMoreThanThereIsAddressSpaceIsFatal) {
  EXPECT_DEATH(pktOf({1, 2})->reserveHead(SIZE_MAX), "overflow");
}

}  // namespace
}  // namespace Ilvo
