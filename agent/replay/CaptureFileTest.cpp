#include <Replay/CaptureFile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <IlvoTestSupport/IgmpPacketBuilder.h>

#include "CaptureTestSupport.h"

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const Bytes reportFrame = ethernet(Ilvo::buildV2Report(Ilvo::IpAddr(239, 1, 1, 1)));

struct Read {
  std::vector<Mox::Seconds> times;
  std::string damage;
};

Read readAll(const Bytes& bytes) {
  const CaptureOnDisk disk(bytes);
  CaptureFile file(disk.path());
  Read read;
  while (const auto next = file.next()) {
    EXPECT_EQ(next->content.skipped, std::nullopt);
    read.times.push_back(next->time);
  }
  EXPECT_FALSE(file.next().has_value());
  read.damage = file.damage();
  return read;
}

std::string refusalOf(const std::string& path) {
  try {
    CaptureFile file(path);
  } catch (const CaptureError& error) {
    return error.what();
  }
  return "accepted";
}

std::string refusalOf(const Bytes& bytes) { return refusalOf(CaptureOnDisk(bytes).path()); }

// A pcapng block: type, length around, body.
Bytes block(Mox::U32 type, const Bytes& body) {
  const auto length = static_cast<Mox::U32>(body.size() + 12);
  return joined({word(type), word(length), body, word(length)});
}

Bytes pcapng(Mox::Seconds time) {
  const Bytes section = joined({word(0x1a2b3c4d), halfWord(1), halfWord(0), Bytes(8, 0xff)});
  const Bytes interface = joined({halfWord(DLT_EN10MB), halfWord(0), word(65535)});
  const auto stamp = static_cast<Mox::U64>(time * 1e6);
  const auto length = static_cast<Mox::U32>(reportFrame.size());
  Bytes padded = reportFrame;
  padded.resize((reportFrame.size() + 3) / 4 * 4);
  const Bytes packet =
      joined({word(0), word(static_cast<Mox::U32>(stamp >> 32)), word(static_cast<Mox::U32>(stamp)),
              word(length), word(length), padded});
  return joined({block(0x0a0d0d0a, section), block(1, interface), block(6, packet)});
}

TEST(CaptureFile, readsFramesWithTheirTimes) {
  const Read read =
      readAll(PcapFile(DLT_EN10MB).frame(10.5, reportFrame).frame(11.25, reportFrame).bytes());
  EXPECT_THAT(read.times, ElementsAre(10.5, 11.25));
  EXPECT_EQ(read.damage, "");
}

TEST(CaptureFile, readsNanoseconds) {
  Bytes bytes = PcapFile(DLT_EN10MB).frame(1.5, reportFrame).bytes();
  bytes[0] = 0x4d;
  bytes[1] = 0x3c;
  EXPECT_THAT(readAll(bytes).times, ElementsAre(1.0005));
}

TEST(CaptureFile, readsTheNextGenerationFormat) {
  EXPECT_THAT(readAll(pcapng(1200000000.5)).times, ElementsAre(1200000000.5));
}

TEST(CaptureFile, aCaptureWithoutFramesIsOne) {
  EXPECT_THAT(readAll(PcapFile(DLT_EN10MB).bytes()).times, testing::IsEmpty());
}

TEST(CaptureFile, framesAheadOfTheDamageAreRead) {
  const Read read = readAll(
      PcapFile(DLT_EN10MB).frame(10.0, reportFrame).frame(11.0, reportFrame).cutEnd(5).bytes());
  EXPECT_THAT(read.times, ElementsAre(10.0));
  EXPECT_THAT(read.damage, HasSubstr("truncated"));
}

TEST(CaptureFile, anImpossibleFrameLengthIsDamage) {
  Bytes bytes = PcapFile(DLT_EN10MB).frame(10.0, reportFrame).bytes();
  bytes[24 + 8 + 3] = 0x7f;
  const Read read = readAll(bytes);
  EXPECT_THAT(read.times, testing::IsEmpty());
  EXPECT_NE(read.damage, "");
}

TEST(CaptureFile, aFileThatIsNoCaptureIsRefused) {
  EXPECT_THAT(refusalOf(Bytes{'n', 'o', 't', 'h', 'i', 'n', 'g', '\n'}),
              HasSubstr("unknown file format"));
  EXPECT_THAT(refusalOf(Bytes{}), HasSubstr("cannot read capture"));
}

TEST(CaptureFile, aFileThatIsNotThereIsRefusedByItsName) {
  EXPECT_EQ(refusalOf(std::string("/nonexistent.pcap")),
            "cannot read capture /nonexistent.pcap: No such file or directory");
}

TEST(CaptureFile, anUnknownLinkTypeIsRefusedByItsName) {
  EXPECT_THAT(refusalOf(PcapFile(105).bytes()), HasSubstr("its link type is IEEE802_11; known"));
}

TEST(CaptureFile, readsTheLinkTypesUnderTheirNumbersInFiles) {
  constexpr Mox::U32 rawInFiles = 101;
  const Bytes packet = Ilvo::buildV2Report(Ilvo::IpAddr(239, 1, 1, 1));
  const Bytes cooked = behind({0, 0, 0, 1, 0, 6, 2, 2, 2, 2, 2, 2, 0, 0, 8, 0}, packet);
  Bytes cooked2(20, 0);
  cooked2[0] = 8;
  EXPECT_EQ(readAll(PcapFile(rawInFiles).frame(1.0, packet).bytes()).times.size(), 1u);
  EXPECT_EQ(readAll(PcapFile(228).frame(1.0, packet).bytes()).times.size(), 1u);
  EXPECT_EQ(readAll(PcapFile(113).frame(1.0, cooked).bytes()).times.size(), 1u);
  EXPECT_EQ(readAll(PcapFile(276).frame(1.0, behind(cooked2, packet)).bytes()).times.size(), 1u);
  EXPECT_EQ(readAll(PcapFile(0).frame(1.0, behind({2, 0, 0, 0}, packet)).bytes()).times.size(), 1u);
  EXPECT_EQ(readAll(PcapFile(108).frame(1.0, behind({0, 0, 0, 2}, packet)).bytes()).times.size(),
            1u);
}

TEST(CaptureFile, timesBeyondTheRangeAreMovedIntoIt) {
  EXPECT_THAT(readAll(pcapng(1e13 - 1.0)).times, ElementsAre(253402300800.0));
}

}  // namespace
}  // namespace Agent
