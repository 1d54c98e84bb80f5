#include <Replay/CaptureFrame.h>

#include <gtest/gtest.h>

#include <IlvoTestSupport/IgmpPacketBuilder.h>

#include "CaptureTestSupport.h"

namespace Agent {

// Read out in failures.
void PrintTo(SkipReason reason, std::ostream* out) {
  for (const SkipReasonName& name : skipReasons) {
    if (name.reason == reason) *out << name.name;
  }
}

namespace {

const Bytes report = Ilvo::buildV2Report(Ilvo::IpAddr(239, 1, 1, 1));

// The packet that was found, or nothing.
std::optional<Bytes> packetIn(int linkType, const Bytes& frame) {
  const CaptureContent content = igmpOf(linkType, frame, frame.size());
  if (content.skipped) return std::nullopt;
  return Bytes(content.ipv4.begin(), content.ipv4.end());
}

std::optional<SkipReason> skipOf(int linkType, const Bytes& frame, size_t lengthOnLink = 0) {
  return igmpOf(linkType, frame, std::max(lengthOnLink, frame.size())).skipped;
}

Bytes changed(Bytes bytes, size_t at, unsigned value) {
  bytes.at(at) = static_cast<Mox::U8>(value);
  return bytes;
}

Bytes cooked1(unsigned type) {
  Bytes header(16, 0);
  header[14] = static_cast<Mox::U8>(type >> 8);
  header[15] = static_cast<Mox::U8>(type);
  return header;
}

Bytes cooked2(unsigned type) {
  Bytes header(20, 0);
  header[0] = static_cast<Mox::U8>(type >> 8);
  header[1] = static_cast<Mox::U8>(type);
  return header;
}

TEST(CaptureFrame, findsThePacketBehindEachLinkHeader) {
  EXPECT_EQ(packetIn(DLT_EN10MB, ethernet(report)), report);
  EXPECT_EQ(packetIn(DLT_RAW, report), report);
  EXPECT_EQ(packetIn(DLT_IPV4, report), report);
  EXPECT_EQ(packetIn(DLT_LINUX_SLL, behind(cooked1(0x0800), report)), report);
  EXPECT_EQ(packetIn(DLT_LINUX_SLL2, behind(cooked2(0x0800), report)), report);
  EXPECT_EQ(packetIn(DLT_NULL, behind({2, 0, 0, 0}, report)), report);
  EXPECT_EQ(packetIn(DLT_NULL, behind({0, 0, 0, 2}, report)), report);
  EXPECT_EQ(packetIn(DLT_LOOP, behind({0, 0, 0, 2}, report)), report);
}

TEST(CaptureFrame, looksThroughVlanTags) {
  EXPECT_EQ(packetIn(DLT_EN10MB, ethernet(report, {0x8100, 0x0800})), report);
  EXPECT_EQ(packetIn(DLT_EN10MB, ethernet(report, {0x88a8, 0x8100, 0x0800})), report);
  EXPECT_EQ(packetIn(DLT_LINUX_SLL, behind(cooked1(0x8100), behind({0, 7, 8, 0}, report))), report);
  EXPECT_EQ(packetIn(DLT_LINUX_SLL2, behind(cooked2(0x8100), behind({0, 7, 8, 0}, report))),
            report);
}

TEST(CaptureFrame, keepsThePaddingBehindThePacket) {
  const Bytes padded = joined({report, Bytes(14, 0)});
  EXPECT_EQ(packetIn(DLT_EN10MB, ethernet(padded)), padded);
}

TEST(CaptureFrame, skipsFramesThatAreNotIpv4) {
  EXPECT_EQ(skipOf(DLT_EN10MB, ethernet(report, {0x86dd})), SkipReason::notIpv4);
  EXPECT_EQ(skipOf(DLT_EN10MB, ethernet(report, {0x0026})), SkipReason::notIpv4);
  EXPECT_EQ(skipOf(DLT_EN10MB, ethernet(report, {0x8100, 0x86dd})), SkipReason::notIpv4);
  EXPECT_EQ(skipOf(DLT_RAW, changed(report, 0, 0x60)), SkipReason::notIpv4);
  EXPECT_EQ(skipOf(DLT_LINUX_SLL, behind(cooked1(0x0806), report)), SkipReason::notIpv4);
  EXPECT_EQ(skipOf(DLT_LINUX_SLL2, behind(cooked2(0x86dd), report)), SkipReason::notIpv4);
  EXPECT_EQ(skipOf(DLT_NULL, behind({10, 0, 0, 0}, report)), SkipReason::notIpv4);
}

TEST(CaptureFrame, skipsOtherProtocols) {
  EXPECT_EQ(skipOf(DLT_EN10MB, ethernet(changed(report, 9, 17))), SkipReason::notIgmp);
}

TEST(CaptureFrame, skipsFragmentsButNotTheFlagAgainstThem) {
  EXPECT_EQ(skipOf(DLT_EN10MB, ethernet(changed(report, 6, 0x20))), SkipReason::fragment);
  EXPECT_EQ(skipOf(DLT_EN10MB, ethernet(changed(report, 7, 0x01))), SkipReason::fragment);
  EXPECT_EQ(skipOf(DLT_EN10MB, ethernet(changed(report, 6, 0x40))), std::nullopt);
}

TEST(CaptureFrame, aShortFrameWasCutByTheCaptureOrIsTooShort) {
  const Bytes frame = ethernet(report);
  for (size_t kept = 0; kept < frame.size(); ++kept) {
    const Bytes cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(kept));
    EXPECT_EQ(skipOf(DLT_EN10MB, cut, frame.size()), SkipReason::cutShort) << kept;
    const auto whole = skipOf(DLT_EN10MB, cut);
    // From a whole IP header on, the querier judges: it counts the packet as damaged.
    EXPECT_EQ(whole, kept < 34 ? std::optional(SkipReason::tooShort) : std::nullopt) << kept;
  }
}

TEST(CaptureFrame, aCutThatTookOnlyThePaddingDoesNotMatter) {
  EXPECT_EQ(skipOf(DLT_EN10MB, ethernet(report), 64), std::nullopt);
}

TEST(CaptureFrame, everyLengthOfEveryLinkTypeIsSafe) {
  const std::vector<std::pair<int, Bytes>> frames{
      {DLT_EN10MB, ethernet(report, {0x88a8, 0x8100, 0x0800})},
      {DLT_RAW, report},
      {DLT_IPV4, report},
      {DLT_LINUX_SLL, behind(cooked1(0x0800), report)},
      {DLT_LINUX_SLL2, behind(cooked2(0x0800), report)},
      {DLT_NULL, behind({2, 0, 0, 0}, report)},
      {DLT_LOOP, behind({0, 0, 0, 2}, report)},
  };
  for (const auto& [linkType, frame] : frames) {
    const size_t header = frame.size() - report.size();
    for (size_t kept = 0; kept < header + 20; ++kept) {
      // A copy that ends where the frame ends, so that a read beyond it is seen.
      const Bytes cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(kept));
      EXPECT_EQ(skipOf(linkType, cut), SkipReason::tooShort) << linkType << " " << kept;
    }
  }
}

TEST(CaptureFrame, knowsItsLinkTypes) {
  for (const int known :
       {DLT_EN10MB, DLT_RAW, DLT_IPV4, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_NULL, DLT_LOOP}) {
    EXPECT_TRUE(isKnownLinkType(known)) << known;
  }
  EXPECT_FALSE(isKnownLinkType(DLT_IEEE802_11));
}

}  // namespace
}  // namespace Agent
