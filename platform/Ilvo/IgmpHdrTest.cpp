#include <Ilvo/IgmpHdr.h>

#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Ilvo/IgmpCode.h>

namespace Ilvo {
namespace {

using testing::ElementsAre;

static_assert(std::is_trivially_copyable_v<IgmpV12Text>);
static_assert(std::is_trivially_copyable_v<IgmpV3QueryText>);

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

Mox::Ptr<Pkt> pktOf(const std::vector<U8>& bytes) { return Mox::makePtr<Pkt>(bytes); }
template <class Text>
std::string printed(const Text& text) {
  std::string out;
  appendText(out, text);
  return out;
}

TEST(IgmpCommonHdr, saysWhatTheBytesSay) {
  const auto pkt = pktOf({0x16, 0x07, 0xf8, 0xf6, 239, 1, 2, 3});
  const IgmpCommonHdr hdr(*pkt);
  EXPECT_EQ(hdr.messageType(), 0x16);
  EXPECT_EQ(hdr.code(), 7);
  EXPECT_EQ(hdr.groupAddress(), IpAddr(239, 1, 2, 3));
}

TEST(IgmpCommonHdr, checksumCoversTheGivenLength) {
  const auto pkt = pktOf({0x11, 0x64, 0xee, 0x9b, 0, 0, 0, 0, 0x00, 0x01});
  const IgmpCommonHdr hdr(*pkt);
  EXPECT_EQ(hdr.computedChecksum(8), 0);
  EXPECT_EQ(hdr.computedChecksum(9), 0);
  EXPECT_EQ(hdr.computedChecksum(10), 0xfffe);
}

TEST(IgmpHdrDeathTest, aViewOverTooFewBytesCannotBeMade) {
  const auto seven = pktOf(std::vector<U8>(7));
  const auto eleven = pktOf(std::vector<U8>(11));
  EXPECT_DEATH(IgmpCommonHdr{*seven}, "Ilvo");
  EXPECT_DEATH(IgmpV12Hdr{*seven}, "Ilvo");
  EXPECT_DEATH(IgmpV3QueryHdr{*eleven}, "Ilvo");
}

TEST(IgmpHdrDeathTest, aChecksumBeyondThePacketIsFatal) {
  const auto pkt = pktOf(std::vector<U8>(12));
  EXPECT_DEATH(IgmpCommonHdr(*pkt).computedChecksum(13), "length");
  EXPECT_DEATH(IgmpV12Hdr(*pkt).checksumUpdate(13), "length");
  EXPECT_DEATH(IgmpV3QueryHdr(*pkt).checksumUpdate(13), "length");
}

TEST(IgmpV12Hdr, readsWhatTheBytesSay) {
  const auto pkt = pktOf({0x11, 0x64, 0xee, 0x9b, 239, 1, 2, 3});
  const IgmpV12Hdr hdr(*pkt);
  EXPECT_EQ(hdr.type(), 0x11);
  EXPECT_EQ(hdr.code(), 100);
  EXPECT_EQ(hdr.checksum(), 0xee9b);
  EXPECT_EQ(hdr.groupAddress(), IpAddr(239, 1, 2, 3));
  EXPECT_EQ(hdr.maxResponseSeconds(), 10.0);
}

TEST(IgmpV12Hdr, writesAWholeQuery) {
  const auto pkt = pktOf(std::vector<U8>(8, 0xff));
  IgmpV12Hdr hdr(*pkt);
  hdr.typeIs(igmpMembershipQuery);
  hdr.maxResponseSecondsIs(10.0);
  hdr.groupAddressIs(IpAddr());
  hdr.checksumUpdate();
  EXPECT_THAT(pkt->data(), ElementsAre(0x11, 0x64, 0xee, 0x9b, 0, 0, 0, 0));
  EXPECT_EQ(IgmpCommonHdr(*pkt).computedChecksum(8), 0);
}

TEST(IgmpV12Hdr, setsCodeAndChecksumAsGiven) {
  const auto pkt = pktOf(std::vector<U8>(8));
  IgmpV12Hdr hdr(*pkt);
  hdr.codeIs(0xab);
  hdr.checksumIs(0x1234);
  EXPECT_THAT(pkt->data(), ElementsAre(0, 0xab, 0x12, 0x34, 0, 0, 0, 0));
}

TEST(IgmpV12Hdr, printsOnOneLine) {
  const auto pkt = pktOf({0x11, 0x64, 0xee, 0x9b, 0, 0, 0, 0});
  EXPECT_EQ(printed(IgmpV12Hdr(*pkt).text()), "IgmpV12Hdr( type 0x11 code 100 group 0.0.0.0 )");
}

TEST(IgmpV12Hdr, cutsTenthsOffAndClampsAt255) {
  struct {
    double seconds;
    U8 code;
  } const cases[] = {{10, 100},    {25.5, 255},     {25.6, 255},    {25.49, 254},   {0.1, 1},
                     {0.09, 0},    {0.3, 3},        {0, 0},         {-1, 0},        {-0.05, 0},
                     {1e300, 255}, {infinity, 255}, {-infinity, 0}, {notANumber, 0}};
  const auto pkt = pktOf(std::vector<U8>(8));
  IgmpV12Hdr hdr(*pkt);
  for (const auto& c : cases) {
    hdr.codeIs(0x77);
    hdr.maxResponseSecondsIs(c.seconds);
    EXPECT_EQ(hdr.code(), c.code) << c.seconds << " seconds";
  }
}

TEST(IgmpV3QueryHdr, readsWhatTheBytesSay) {
  const auto pkt = pktOf(
      {0x11, 0x8a, 0x12, 0x34, 239, 1, 2, 3, 0x5b, 0x80, 0x00, 0x02, 10, 0, 0, 17, 1, 2, 3, 4});
  const IgmpV3QueryHdr hdr(*pkt);
  EXPECT_EQ(hdr.type(), 0x11);
  EXPECT_EQ(hdr.code(), 0x8a);
  EXPECT_EQ(hdr.checksum(), 0x1234);
  EXPECT_EQ(hdr.groupAddress(), IpAddr(239, 1, 2, 3));
  EXPECT_TRUE(hdr.sFlag());
  EXPECT_EQ(hdr.qrv(), 3);
  EXPECT_EQ(hdr.qqic(), 0x80);
  EXPECT_EQ(hdr.numSources(), 2);
  EXPECT_EQ(hdr.source(0), IpAddr(10, 0, 0, 17));
  EXPECT_EQ(hdr.source(1), IpAddr(1, 2, 3, 4));
  EXPECT_DOUBLE_EQ(hdr.maxResponseSeconds(), 20.8);
  EXPECT_DOUBLE_EQ(hdr.queryIntervalSeconds(), 128.0);
}

TEST(IgmpV3QueryHdr, writesAWholeQuery) {
  const auto pkt = Mox::makePtr<Pkt>();
  pkt->reserveHead(20);
  IgmpV3QueryHdr hdr(*pkt);
  hdr.typeIs(igmpMembershipQuery);
  hdr.maxResponseSecondsIs(1.0);
  hdr.groupAddressIs(IpAddr(239, 1, 2, 3));
  hdr.reservedIs(0);
  hdr.sFlagIs(true);
  hdr.qrvIs(2);
  hdr.queryIntervalSecondsIs(125);
  hdr.numSourcesIs(0);
  hdr.sourceAppend(IpAddr(10, 0, 0, 2));
  hdr.sourceAppend(IpAddr(10, 0, 0, 1));
  hdr.checksumUpdate(20);
  EXPECT_THAT(pkt->data(), ElementsAre(0x11, 10, 0xdf, 0x6e, 239, 1, 2, 3, 0x0a, 125, 0, 2, 10, 0,
                                       0, 2, 10, 0, 0, 1));
  EXPECT_EQ(IgmpCommonHdr(*pkt).computedChecksum(20), 0);
}

TEST(IgmpV3QueryHdr, settersOfTheFlagsByteLeaveTheOtherBits) {
  const auto pkt = pktOf(std::vector<U8>(12));
  IgmpV3QueryHdr hdr(*pkt);
  pkt->u8Is(8, 0xff);
  hdr.sFlagIs(false);
  EXPECT_EQ(pkt->u8(8), 0xf7);
  hdr.qrvIs(2);
  EXPECT_EQ(pkt->u8(8), 0xf2);
  hdr.reservedIs(0);
  EXPECT_EQ(pkt->u8(8), 0x02);
  hdr.sFlagIs(true);
  EXPECT_EQ(pkt->u8(8), 0x0a);
  hdr.reservedIs(9);
  EXPECT_EQ(pkt->u8(8), 0x9a);
}

TEST(IgmpV3QueryHdr, clampsRobustnessToThreeBits) {
  const auto pkt = pktOf(std::vector<U8>(12));
  IgmpV3QueryHdr hdr(*pkt);
  hdr.qrvIs(9);
  EXPECT_EQ(pkt->u8(8), 0x07);
  hdr.qrvIs(7);
  EXPECT_EQ(hdr.qrv(), 7);
  hdr.qrvIs(256);
  EXPECT_EQ(hdr.qrv(), 7);
}

TEST(IgmpV3QueryHdr, encodesTheMaximumResponseTimeInTenths) {
  struct {
    double seconds;
    U8 code;
  } const cases[] = {{10, 100},      {12.7, 127}, {12.8, 0x80},     {13.59, 0x80},
                     {13.6, 0x81},   {0.3, 3},    {0.05, 0},        {3174.4, 0xff},
                     {3174.3, 0xfe}, {1e9, 0xff}, {infinity, 0xff}, {0, 0},
                     {-infinity, 0}, {-1, 0},     {notANumber, 0}};
  const auto pkt = pktOf(std::vector<U8>(12));
  IgmpV3QueryHdr hdr(*pkt);
  for (const auto& c : cases) {
    hdr.codeIs(0x77);
    hdr.maxResponseSecondsIs(c.seconds);
    EXPECT_EQ(hdr.code(), c.code) << c.seconds << " seconds";
  }
}

TEST(IgmpV3QueryHdr, takesTenthsForWhatTheyAreAndRoundsJustBelowThemDown) {
  const auto pkt = pktOf(std::vector<U8>(12));
  IgmpV3QueryHdr hdr(*pkt);
  for (unsigned tenths = 1; tenths <= igmpCodeMax; ++tenths) {
    const double seconds = tenths / 10.0;
    hdr.maxResponseSecondsIs(seconds);
    ASSERT_EQ(hdr.code(), igmpCodeEncode(tenths)) << seconds << " seconds";
    hdr.maxResponseSecondsIs(0.5 * (tenths / 5.0));  // half of an interval of twice the length
    ASSERT_EQ(hdr.code(), igmpCodeEncode(tenths)) << "half of " << 2 * seconds << " seconds";
    hdr.maxResponseSecondsIs(seconds - 5e-8);
    ASSERT_EQ(hdr.code(), igmpCodeEncode(tenths - 1)) << "just below " << seconds << " seconds";
  }
}

TEST(IgmpV3QueryHdr, settersUndoGettersForEveryCode) {
  const auto pkt = pktOf(std::vector<U8>(12));
  IgmpV3QueryHdr hdr(*pkt);
  for (unsigned code = 0; code < 256; ++code) {
    const auto c = static_cast<U8>(code);
    hdr.codeIs(c);
    hdr.maxResponseSecondsIs(hdr.maxResponseSeconds());
    EXPECT_EQ(hdr.code(), c);
    hdr.qqicIs(c);
    hdr.queryIntervalSecondsIs(hdr.queryIntervalSeconds());
    EXPECT_EQ(hdr.qqic(), c);
  }
}

TEST(IgmpV3QueryHdr, printsOnOneLine) {
  const auto pkt = pktOf({0x11, 0x64, 0, 0, 0, 0, 0, 0, 0x02, 125, 0, 0});
  EXPECT_EQ(printed(IgmpV3QueryHdr(*pkt).text()),
            "IgmpV3QueryHdr( type 0x11 code 100 group 0.0.0.0 s 0 qrv 2 qqic 125 sources 0 )");
  pkt->u8Is(8, 0x0f);
  pkt->u16Is(10, 65535);
  EXPECT_EQ(printed(IgmpV3QueryHdr(*pkt).text()),
            "IgmpV3QueryHdr( type 0x11 code 100 group 0.0.0.0 s 1 qrv 7 qqic 125 sources 65535 )");
}

TEST(IgmpV3QueryHdrDeathTest, aSourceThatIsNotThereIsFatal) {
  const auto pkt = pktOf(std::vector<U8>(16));
  IgmpV3QueryHdr hdr(*pkt);
  EXPECT_DEATH(hdr.source(0), "i < numSources");
  hdr.numSourcesIs(2);
  EXPECT_EQ(hdr.source(0), IpAddr());
  EXPECT_DEATH(hdr.source(1), "has\\( at \\+ n \\)");
}

TEST(IgmpV3QueryHdrDeathTest, appendingASourceWithoutRoomIsFatal) {
  const auto pkt = pktOf(std::vector<U8>(16));
  IgmpV3QueryHdr hdr(*pkt);
  hdr.sourceAppend(IpAddr(1, 2, 3, 4));
  EXPECT_DEATH(hdr.sourceAppend(IpAddr()), "has\\( at \\+ n \\)");
  hdr.numSourcesIs(65535);
  EXPECT_DEATH(hdr.sourceAppend(IpAddr()), "numSources\\( \\) < 65535");
  EXPECT_DEATH(hdr.reservedIs(16), "reserved <= 0x0f");
}

}  // namespace
}  // namespace Ilvo
