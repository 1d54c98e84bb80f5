#include "RxBench.h"

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

class QuerierSmRxV3Report : public RxBench {};

TEST_F(QuerierSmRxV3Report, EachRecordGoesToItsGroupAndTheReportCountsOnce) {
  startAs(igmpVersion3);
  receiveV3Report(
      {{.type = 4, .group = group_}, {.type = 1, .group = group2_, .sources = {source_}}});
  EXPECT_THAT(querier_->groupSm().keys(), UnorderedElementsAre(group_, group2_));
  EXPECT_EQ(status_->v3ReportReceived(), 1u);
  EXPECT_EQ(journal_.back(), "status.v3ReportReceived 1");
  const IgmpGroupRecord first{igmpVersion3, RecordType(4), group_, {}};
  const IgmpGroupRecord second{igmpVersion3, RecordType(1), group2_, {source_}};
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxV3Report( " + valueToStrep(first) + " )"),
            1u);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.2 )::handleRxV3Report( " + valueToStrep(second) + " )"),
            1u);
}

TEST_F(QuerierSmRxV3Report, RecordsAreTakenInTheOrderOfTheMessage) {
  startAs(igmpVersion3);
  std::vector<Ilvo::V3Record> records;
  std::vector<std::string> expected;
  for (U8 i = 40; i > 0; --i) {
    records.push_back({.type = 4, .group = IpAddr(239, 1, 1, i)});
    expected.push_back("status.group 239.1.1." + std::to_string(i));
  }
  receiveV3Report(records);
  std::erase_if(journal_, [](auto& line) { return !line.starts_with("status.group "); });
  EXPECT_EQ(journal_, expected);
}

TEST_F(QuerierSmRxV3Report, TwoRecordsOfOneGroupAreBothTaken) {
  startAs(igmpVersion3);
  receiveV3Report({{.type = 1, .group = group_, .sources = {source_}},
                   {.type = 1, .group = group_, .sources = {host_}}});
  EXPECT_THAT(groupSm(group_)->source().keys(), UnorderedElementsAre(source_, host_));
}

TEST_F(QuerierSmRxV3Report, AnEmptyReportIsCounted) {
  startAs(igmpVersion3);
  receiveV3Report({});
  EXPECT_THAT(journal_, ElementsAre("status.v3ReportReceived 1"));
}

TEST_F(QuerierSmRxV3Report, OtherConfiguredVersionsIgnoreIt) {
  for (const auto version : {igmpVersion1, igmpVersion2}) {
    startAs(version);
    receiveRecord(4, group_);
    EXPECT_THAT(journal_, IsEmpty());
    EXPECT_EQ(traced("Ignoring V3 reports Igmp version configured is " + std::to_string(version)),
              1u);
  }
}

TEST_F(QuerierSmRxV3Report, AnInvalidReportIsDroppedAsAWholeAndCountsNothing) {
  startAs(igmpVersion3);
  receiveV3Report({{.type = 4, .group = group_},
                   {.type = 4, .group = group2_, .sources = {source_}, .numSources = 2}});
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_TRUE(querier_->groupSm().empty());
  EXPECT_EQ(traced("Dropping an invalid V3 report"), 1u);
}

TEST_F(QuerierSmRxV3Report, AClaimOfMoreRecordsThanThereAreMakesItInvalid) {
  startAs(igmpVersion3);
  receive(Ilvo::buildV3Report({{.type = 4, .group = group_}}, {}, 2));
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(QuerierSmRxV3Report, AClaimOfFewerRecordsLeavesTheRestUnread) {
  startAs(igmpVersion3);
  receive(
      Ilvo::buildV3Report({{.type = 4, .group = group_}, {.type = 4, .group = group2_}}, {}, 1));
  EXPECT_THAT(querier_->groupSm().keys(), ElementsAre(group_));
  EXPECT_EQ(status_->v3ReportReceived(), 1u);
}

TEST_F(QuerierSmRxV3Report, RecordsOfGroupsThatCannotBeLearnedAreSkipped) {
  startAs(igmpVersion3);
  receiveV3Report({{.type = 4, .group = IpAddr(224, 0, 0, 5)},
                   {.type = 4, .group = IpAddr(10, 9, 9, 9)},
                   {.type = 4, .group = IpAddr()},
                   {.type = 4, .group = group_}});
  EXPECT_THAT(querier_->groupSm().keys(), ElementsAre(group_));
  for (const char* addr : {"224.0.0.5", "10.9.9.9", "0.0.0.0"}) {
    EXPECT_EQ(traced("Ignoring record because " + std::string(addr) +
                     " is not a valid, non-reserved multicast address"),
              1u);
  }
}

TEST_F(QuerierSmRxV3Report, AReportWithOnlyAReservedRecordIsStillCounted) {
  startAs(igmpVersion3);
  receiveRecord(4, IpAddr(224, 0, 0, 5));
  EXPECT_THAT(journal_, ElementsAre("status.v3ReportReceived 1"));
}

TEST_F(QuerierSmRxV3Report, EachRecordInsideTheBoundaryIsCountedAndSkipped) {
  startAs(igmpVersion3);
  boundTo("239.1.0.0/16");
  receiveV3Report({{.type = 4, .group = group_},
                   {.type = 4, .group = group2_},
                   {.type = 4, .group = IpAddr(239, 2, 0, 1)}});
  EXPECT_THAT(querier_->groupSm().keys(), ElementsAre(IpAddr(239, 2, 0, 1)));
  EXPECT_EQ(status_->mcastBoundaryPktReceived(), 2u);
  EXPECT_EQ(status_->v3ReportReceived(), 1u);
  EXPECT_EQ(traced("Group configured in multicast boundary: 239.1.1.1"), 1u);
  EXPECT_EQ(traced("McastBoundaryPktReceived counter : 1"), 1u);
  EXPECT_EQ(traced("McastBoundaryPktReceived counter : 2"), 1u);
}

TEST_F(QuerierSmRxV3Report, AReservedRecordInsideTheBoundaryIsNotCountedThere) {
  startAs(igmpVersion3);
  boundTo("0.0.0.0/0");
  receiveRecord(4, IpAddr(224, 0, 0, 5));
  EXPECT_EQ(status_->mcastBoundaryPktReceived(), 0u);
}

TEST_F(QuerierSmRxV3Report, ASourceThatIsNotUnicastIsLoggedAndLeftOut) {
  startAs(igmpVersion3);
  receiveRecord(1, group_, {IpAddr(224, 0, 0, 1), source_});
  EXPECT_THAT(groupSm(group_)->source().keys(), ElementsAre(source_));
  ASSERT_EQ(events_.size(), 1u);
  EXPECT_EQ(events_[0].name, "IGMP_MESSAGE_INVALID_SOURCE");
  EXPECT_EQ(events_[0].text, "Received invalid source 224.0.0.1 for group 239.1.1.1.");
}

TEST_F(QuerierSmRxV3Report, AMessageOfExactlyEightBytesIsAReport) {
  startAs(igmpVersion3);
  receive(Ilvo::buildIgmpPacket({0x22, 0, 0, 0, 0, 0, 0, 0}, IpAddr(224, 0, 0, 22)));
  EXPECT_EQ(status_->v3ReportReceived(), 1u);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
