#include <optional>
#include <utility>
#include <vector>

#include <GmpIgmpQuerier/IgmpParse.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "IgmpParseTestSupport.h"

namespace Gmp::Igmp {
namespace {

using Ilvo::V3Record;

class IgmpReportParse : public IgmpParseFixture {
 protected:
  static IgmpReport parse(const std::vector<V3Record>& records, size_t cut = 0,
                          std::optional<U16> numRecords = std::nullopt) {
    return doIgmpV3MembershipReportParse(
        messageOf(Ilvo::buildV3Report(records, {}, numRecords), cut));
  }
  static IgmpGroupRecord record(U8 type, IpAddr group, IpAddrSet sources) {
    return {igmpVersion3, RecordType(type), group, std::move(sources)};
  }

  const IpAddr other_{239, 2, 2, 2};
};

TEST_F(IgmpReportParse, readsEveryRecordUnderItsPlace) {
  const IgmpReport report =
      parse({{.type = 1, .group = group_, .sources = {b_, a_}}, {.type = 4, .group = other_}});
  EXPECT_TRUE(report.validPacket);
  ASSERT_EQ(report.groupRecord().size(), 2u);
  EXPECT_EQ(report.groupRecord(0), record(1, group_, {a_, b_}));
  EXPECT_EQ(report.groupRecord(1), record(4, other_, {}));
  EXPECT_EQ(events(), Texts{});
}

TEST_F(IgmpReportParse, tracesWhatItReads) {
  parse({{.type = 1, .group = group_, .sources = {b_, a_}},
         {.type = 4, .group = other_, .auxWords = 2}});
  EXPECT_EQ(traces(), (Texts{
                          "8 NumGroupRecords 2",
                          "6 Group record 0",
                          "6 addr: 239.1.1.1 recordType: 1 auxDataLen: 0 numSources: 2",
                          "6 version: igmpVersion3 recordType: 1 multicastAddr: 239.1.1.1",
                          "6 Source 0 is 10.0.0.2",
                          "6 Source 1 is 10.0.0.1",
                          "6 Group record 1",
                          "6 addr: 239.2.2.2 recordType: 4 auxDataLen: 2 numSources: 0",
                          "6 version: igmpVersion3 recordType: 4 multicastAddr: 239.2.2.2",
                      }));
}

TEST_F(IgmpReportParse, leavesThePacketAsItIs) {
  const Ptr<Ilvo::Pkt> pkt =
      messageOf(Ilvo::buildV3Report({{.type = 4, .group = group_, .sources = {a_}}}));
  EXPECT_TRUE(doIgmpV3MembershipReportParse(pkt).validPacket);
  EXPECT_EQ(pkt->offsetBytes(), 20u);
  EXPECT_EQ(pkt->u8(0), 0x22);
}

TEST_F(IgmpReportParse, reportWithoutRecordsIsValid) {
  const IgmpReport report = parse({});
  EXPECT_TRUE(report.validPacket);
  EXPECT_TRUE(report.groupRecord().empty());
  EXPECT_EQ(traces(), Texts{"8 NumGroupRecords 0"});
}

TEST_F(IgmpReportParse, messageShorterThanTheHeaderIsInvalid) {
  for (size_t cut = 1; cut <= 8; ++cut) {
    EXPECT_EQ(parse({}, cut), IgmpReport()) << 8 - cut << " bytes";
  }
  EXPECT_EQ(traces(), Texts{});
}

TEST_F(IgmpReportParse, truncatedThirdRecordDiscardsTheWholeReport) {
  const std::vector<V3Record> records{
      {.type = 1, .group = group_, .sources = {a_}},
      {.type = 2, .group = other_, .sources = {b_}},
      {.type = 3, .group = IpAddr(239, 3, 3, 3), .sources = {a_, b_}, .auxWords = 1}};
  ASSERT_EQ(parse(records).groupRecord().size(), 3u);
  const size_t thirdRecord = 8 + 2 * 4 + 4;
  for (size_t cut = 1; cut <= thirdRecord; ++cut) {
    SCOPED_TRACE(cut);
    traces();
    EXPECT_EQ(parse(records, cut), IgmpReport());
    EXPECT_THAT(traces(), testing::Contains("6 Group record 2"));
  }
}

TEST_F(IgmpReportParse, recordMayEndExactlyAtTheEnd) {
  EXPECT_TRUE(parse({{.type = 4, .group = group_}}).validPacket);
  EXPECT_TRUE(parse({{.type = 4, .group = group_, .sources = {a_}}}).validPacket);
  EXPECT_TRUE(parse({{.type = 4, .group = group_, .sources = {a_}, .auxWords = 1}}).validPacket);
}

TEST_F(IgmpReportParse, moreRecordsThanTheMessageHoldsMakeItInvalid) {
  EXPECT_EQ(parse({{.type = 4, .group = group_}}, 0, 2), IgmpReport());
  EXPECT_EQ(parse({}, 0, 65535), IgmpReport());
}

TEST_F(IgmpReportParse, moreSourcesThanTheMessageHoldsMakeItInvalid) {
  EXPECT_EQ(parse({{.type = 4, .group = group_, .sources = {a_}, .numSources = 2}}), IgmpReport());
  EXPECT_EQ(parse({{.type = 4, .group = group_, .numSources = 65535}}), IgmpReport());
}

TEST_F(IgmpReportParse, bytesBehindTheLastRecordAreIgnored) {
  const std::vector<V3Record> two{{.type = 4, .group = group_}, {.type = 4, .group = other_}};
  const IgmpReport report = parse(two, 0, 1);
  EXPECT_TRUE(report.validPacket);
  EXPECT_EQ(report.groupRecord().size(), 1u);
  EXPECT_TRUE(parse(two, 0, 0).validPacket);
}

TEST_F(IgmpReportParse, auxiliaryDataIsSkipped) {
  const IgmpReport report = parse({{.type = 1, .group = group_, .sources = {a_}, .auxWords = 1},
                                   {.type = 2, .group = other_, .sources = {b_}, .auxWords = 255},
                                   {.type = 3, .group = group_}});
  ASSERT_EQ(report.groupRecord().size(), 3u);
  EXPECT_EQ(report.groupRecord(0), record(1, group_, {a_}));
  EXPECT_EQ(report.groupRecord(1), record(2, other_, {b_}));
  EXPECT_EQ(report.groupRecord(2), record(3, group_, {}));
}

TEST_F(IgmpReportParse, auxiliaryDataBeyondTheMessageMakesItInvalid) {
  const std::vector<V3Record> records{{.type = 4, .group = group_, .auxWords = 1}};
  for (size_t cut = 1; cut <= 4; ++cut) {
    EXPECT_EQ(parse(records, cut), IgmpReport()) << cut;
  }
}

TEST_F(IgmpReportParse, sourceThatIsNotUnicastIsReportedAndItsRecordKept) {
  const IgmpReport report =
      parse({{.type = 4, .group = group_, .sources = {IpAddr(224, 0, 0, 1)}}});
  EXPECT_TRUE(report.validPacket);
  ASSERT_EQ(report.groupRecord().size(), 1u);
  EXPECT_EQ(report.groupRecord(0), record(4, group_, {}));
  EXPECT_EQ(events(), Texts{"IGMP_MESSAGE_INVALID_SOURCE: Received invalid source 224.0.0.1 for "
                            "group 239.1.1.1."});
  const Texts lines = traces();
  ASSERT_EQ(lines.size(), 4u) << "no source was taken";
  EXPECT_EQ(lines[2], "6 addr: 239.1.1.1 recordType: 4 auxDataLen: 0 numSources: 1");
}

TEST_F(IgmpReportParse, goodSourcesAroundABadOneAreKept) {
  const IgmpReport report =
      parse({{.type = 4, .group = group_, .sources = {b_, IpAddr(255, 255, 255, 255), a_}}});
  EXPECT_EQ(report.groupRecord(0).source, (IpAddrSet{a_, b_}));
  EXPECT_EQ(events().size(), 1u);
}

TEST_F(IgmpReportParse, everyBadSourceIsReportedWithoutALimit) {
  const IpAddr bad(224, 0, 0, 1);
  parse({{.type = 4, .group = group_, .sources = {bad, bad}}});
  parse({{.type = 4, .group = group_, .sources = {bad}}});
  EXPECT_EQ(events().size(), 3u);
}

TEST_F(IgmpReportParse, repeatedSourceIsKeptOnce) {
  const IgmpReport report = parse({{.type = 4, .group = group_, .sources = {b_, a_, b_}}});
  EXPECT_EQ(report.groupRecord(0).source, (IpAddrSet{a_, b_}));
}

TEST_F(IgmpReportParse, recordsOfTheSameGroupStayApart) {
  const IgmpReport report = parse({{.type = 5, .group = group_, .sources = {a_}},
                                   {.type = 6, .group = group_, .sources = {a_}}});
  EXPECT_EQ(report.groupRecord(0), record(5, group_, {a_}));
  EXPECT_EQ(report.groupRecord(1), record(6, group_, {a_}));
}

TEST_F(IgmpReportParse, typesAndGroupsAreNotJudgedHere) {
  const IgmpReport report = parse({{.type = 0, .group = IpAddr()}, {.type = 255, .group = a_}});
  EXPECT_TRUE(report.validPacket);
  EXPECT_EQ(report.groupRecord(0), record(0, IpAddr(), {}));
  EXPECT_EQ(report.groupRecord(1), record(255, a_, {}));
}

}  // namespace
}  // namespace Gmp::Igmp
