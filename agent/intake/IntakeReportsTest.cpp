// Which groups reports may name, how many groups they may make, and how many queries they may
// cause.
#include "IntakeTestSupport.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Mox::U64;
using Mox::U8;
using testing::ElementsAre;

class IntakeReportsTest : public IntakeTest {
 protected:
  static constexpr IpAddr sourceSpecific_{232, 1, 1, 1};

  void SetUp() override { start(); }

  std::string reported(IpAddr group) {
    return received(Ilvo::buildV2Report(group, {.src = host_}));
  }
  std::string left(IpAddr group) { return received(Ilvo::buildV2Leave(group, {.src = host_})); }
  static IpAddr group(U64 number) { return IpAddr(0xef010000 + static_cast<Mox::U32>(number)); }
  // In how many parts the report is handled.
  size_t partsOf(const std::vector<Ilvo::V3Record>& records) {
    size_t parts = 1;
    for (receivedRecords(records); !rest_.empty(); received(Bytes(rest_))) ++parts;
    return parts;
  }
  // Leaves a burst of two queries used up, and nothing to be asked.
  void useUpBurst() {
    config_->maxQueryRateIs(1);
    config_->maxQueryBurstIs(2);
    EXPECT_EQ(reported(group(77)), "passes");
    EXPECT_EQ(left(group(77)), "passes");
    querier_->groupSmDel(group(77));
  }
  void join(size_t groups) {
    for (size_t i = 0; i < groups; ++i) EXPECT_EQ(receivedRecord(2, group(i)), "passes");
  }
};

TEST_F(IntakeReportsTest, onlyAcceptedGroupsAreJoined) {
  config_->acceptedGroupsIs(PrefixList("239.1.0.0/16"));
  const IpAddr other(239, 2, 0, 1);
  EXPECT_EQ(reported(group_), "passes");
  EXPECT_EQ(reported(other), "refused: unacceptedGroup");
  EXPECT_EQ(left(other), "refused: unacceptedGroup");
  EXPECT_EQ(receivedRecord(2, other), "refused: unacceptedGroup");
  EXPECT_EQ(receivedRecords({{.type = 2, .group = other}, {.type = 2, .group = group(7)}}),
            "changed: unacceptedGroup");
  EXPECT_EQ(groups(), 2u);
  EXPECT_EQ(counted(IntakeRule::unacceptedGroup), 4u);
  EXPECT_THAT(events(), ElementsAre("unacceptedGroup 10.0.0.77 mac 77 group 239.2.0.1 count 1"));
}

struct SourceSpecificCase {
  const char* name;
  U8 type;
  bool passes;
};

class SourceSpecificTest : public IntakeReportsTest,
                           public testing::WithParamInterface<SourceSpecificCase> {};

TEST_P(SourceSpecificTest, groupsOfItsRangeAreJoinedBySourceOnly) {
  EXPECT_EQ(receivedRecord(GetParam().type, sourceSpecific_, {source_}), "passes");
  config_->guardSourceSpecificIs(true);
  EXPECT_EQ(receivedRecord(GetParam().type, sourceSpecific_, {source_}),
            GetParam().passes ? "passes" : "refused: notSourceSpecific");
  EXPECT_EQ(receivedRecord(GetParam().type, IpAddr(233, 0, 0, 1), {source_}), "passes");
}

INSTANTIATE_TEST_SUITE_P(RecordTypes, SourceSpecificTest,
                         testing::Values(SourceSpecificCase{"modeIsInclude", 1, true},
                                         SourceSpecificCase{"modeIsExclude", 2, false},
                                         SourceSpecificCase{"changeToInclude", 3, true},
                                         SourceSpecificCase{"changeToExclude", 4, false},
                                         SourceSpecificCase{"allowNewSources", 5, true},
                                         SourceSpecificCase{"blockOldSources", 6, true}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(IntakeReportsTest, oldVersionsCannotJoinSourceSpecificGroups) {
  config_->guardSourceSpecificIs(true);
  EXPECT_EQ(reported(sourceSpecific_), "refused: notSourceSpecific");
  EXPECT_EQ(left(sourceSpecific_), "refused: notSourceSpecific");
  EXPECT_EQ(received(Ilvo::buildV1Report(sourceSpecific_, {.src = host_})),
            "refused: notSourceSpecific");
  EXPECT_EQ(reported(group_), "passes");
}

TEST_F(IntakeReportsTest, newGroupBeyondTheLimitIsRefused) {
  config_->maxGroupsIs(2);
  EXPECT_EQ(reported(group(1)), "passes");
  EXPECT_EQ(received(Ilvo::buildV1Report(group(2), {.src = host_})), "passes");
  EXPECT_EQ(reported(group(3)), "refused: groupLimit");
  EXPECT_EQ(received(Ilvo::buildV1Report(group(3), {.src = host_})), "refused: groupLimit");
  EXPECT_EQ(receivedRecord(4, group(3)), "refused: groupLimit");
  EXPECT_EQ(receivedRecord(5, group(3), {source_}), "refused: groupLimit");
  EXPECT_EQ(groups(), 2u);
  EXPECT_EQ(counted(IntakeRule::groupLimit), 4u);
  EXPECT_EQ(status_->groupsMost(), 2u);
}

TEST_F(IntakeReportsTest, knownGroupsAreRefreshedAtTheLimit) {
  config_->maxGroupsIs(2);
  join(2);
  advance(100.0);
  EXPECT_EQ(reported(group(0)), "passes");
  EXPECT_EQ(receivedRecord(2, group(1)), "passes");
  EXPECT_EQ(querierStatus_->group(group(0))->expiryTime(), 1360.0);
  EXPECT_EQ(querierStatus_->group(group(1))->expiryTime(), 1360.0);
}

TEST_F(IntakeReportsTest, groupThatEndsMakesRoom) {
  config_->maxGroupsIs(1);
  join(1);
  EXPECT_EQ(receivedRecord(2, group(1)), "refused: groupLimit");
  advance(260.0);
  EXPECT_EQ(receivedRecord(2, group(1)), "passes");
}

TEST_F(IntakeReportsTest, limitThatIsLoweredEndsNoGroup) {
  join(3);
  config_->maxGroupsIs(1);
  EXPECT_EQ(receivedRecord(2, group(2)), "passes");
  EXPECT_EQ(receivedRecord(2, group(3)), "refused: groupLimit");
  EXPECT_EQ(groups(), 3u);
}

TEST_F(IntakeReportsTest, reportThatFillsTheLimitLosesTheRecordsBehind) {
  config_->maxGroupsIs(3);
  join(1);
  EXPECT_EQ(receivedRecords({{.type = 2, .group = group(0)},
                             {.type = 2, .group = group(1), .auxWords = 1},
                             {.type = 2, .group = group(1)},
                             {.type = 2, .group = group(2)},
                             {.type = 2, .group = group(3)},
                             {.type = 2, .group = group(0)},
                             {.type = 2, .group = group(4)}}),
            "changed: groupLimit");
  EXPECT_EQ(groups(), 3u);
  EXPECT_TRUE(querierStatus_->group(group(2)));
  EXPECT_EQ(querierStatus_->v3ReportReceived(), 2u);
  EXPECT_EQ(querierStatus_->errorPacketReceived(), 0u);
  EXPECT_EQ(counted(IntakeRule::groupLimit), 2u);
}

TEST_F(IntakeReportsTest, recordsThatMakeNoGroupAreNotRefusedAtTheLimit) {
  config_->maxGroupsIs(1);
  join(1);
  EXPECT_EQ(receivedRecord(3, group(1)), "passes");
  EXPECT_EQ(receivedRecord(6, group(1), {source_}), "passes");
  EXPECT_EQ(counted(IntakeRule::groupLimit), 0u);
  EXPECT_EQ(groups(), 1u);
}

TEST_F(IntakeReportsTest, recordsThatMakeNoGroupTakeNoRoom) {
  config_->maxGroupsIs(1);
  EXPECT_EQ(receivedRecords({{.type = 1, .group = group(1)},
                             {.type = 2, .group = IpAddr(224, 0, 0, 5)},
                             {.type = 2, .group = IpAddr(10, 0, 0, 1)},
                             {.type = 6, .group = group(2), .sources = {source_}},
                             {.type = 2, .group = group(3)}}),
            "passes");
  EXPECT_TRUE(querierStatus_->group(group(3)));
}

TEST_F(IntakeReportsTest, groupOfTheBoundaryIsLeftToTheQuerier) {
  const auto boundary = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  boundary->boundaryIs(*Ilvo::IpGenPrefix::parse("239.1.0.0/16"), true);
  config_->maxGroupsIs(1);
  EXPECT_EQ(reported(IpAddr(239, 5, 0, 1)), "passes");
  querier_->mcastBoundaryIntfStatusIs(boundary);
  EXPECT_EQ(reported(group_), "passes");
  EXPECT_EQ(receivedRecord(2, group_), "passes");
  EXPECT_EQ(querierStatus_->mcastBoundaryPktReceived(), 2u);
}

TEST_F(IntakeReportsTest, groupsOfOtherInterfacesCountForTheProcess) {
  const auto other = Gmp::Igmp::querierStatusFactory();
  other->groupIs(group(100));
  other->groupIs(group(101));
  processConfig().maxProcessGroupsIs(3);
  EXPECT_EQ(reported(group(1)), "passes");
  EXPECT_EQ(reported(group(2)), "refused: processGroupLimit");
  EXPECT_EQ(receivedRecord(2, group(2)), "refused: processGroupLimit");
  EXPECT_EQ(reported(group(1)), "passes");
  EXPECT_EQ(process_.status->groupsMost(), 3u);
  other->groupDel(group(100));
  EXPECT_EQ(reported(group(2)), "passes");
}

TEST_F(IntakeReportsTest, oneGroupMayHaveSixteenRecordsInAPacket) {
  std::vector<Ilvo::V3Record> records(16, {.type = 2, .group = group(1)});
  records.push_back({.type = 2, .group = group(2)});
  EXPECT_EQ(receivedRecords(records), "passes");
  records.push_back({.type = 2, .group = group(1)});
  records.push_back({.type = 2, .group = group(3)});
  EXPECT_EQ(receivedRecords(records), "changed: groupRecordLimit");
  EXPECT_EQ(groups(), 3u);
  EXPECT_EQ(counted(IntakeRule::groupRecordLimit), 1u);
  EXPECT_EQ(status_->groupRecordsMost(), 17u);
}

TEST_F(IntakeReportsTest, manyGroupsMayHaveOneRecordEach) {
  std::vector<Ilvo::V3Record> records;
  for (U64 i = 0; i < 1100; ++i) records.push_back({.type = 2, .group = group(i)});
  EXPECT_EQ(receivedRecords(records), "passes");
  EXPECT_EQ(groups(), 1100u);
}

TEST_F(IntakeReportsTest, leavesBeyondTheBudgetOfQueriesAreRefused) {
  config_->maxQueryRateIs(2);
  config_->maxQueryBurstIs(4);
  join(4);
  EXPECT_EQ(left(group(0)), "passes");  // two queries each
  EXPECT_EQ(left(group(1)), "passes");
  EXPECT_EQ(left(group(2)), "refused: queryLimit");
  EXPECT_EQ(receivedRecord(3, group(3)), "refused: queryLimit");
  EXPECT_EQ(status_->queryBurstMost(), 4u);
  advance(1.0);
  EXPECT_EQ(left(group(2)), "passes");
  EXPECT_EQ(receivedRecord(3, group(3)), "refused: queryLimit");
  EXPECT_EQ(counted(IntakeRule::queryLimit), 3u);
  advance(5.0);
  EXPECT_EQ(groups(), 1u);
}

TEST_F(IntakeReportsTest, leaveThatNeedsMoreThanTheBurstIsTakenAfterARest) {
  config_->maxQueryRateIs(1);
  config_->maxQueryBurstIs(1);
  join(2);
  EXPECT_EQ(left(group(0)), "passes");  // two queries each
  EXPECT_EQ(left(group(1)), "refused: queryLimit");
  advance(1.0);
  EXPECT_EQ(left(group(1)), "refused: queryLimit");
  advance(1.0);
  EXPECT_EQ(left(group(1)), "passes");
}

TEST_F(IntakeReportsTest, leaveThatCausesNoQueryUsesNothingUp) {
  config_->maxQueryBurstIs(1);
  received(Ilvo::buildV1Report(group(1), {.src = host_}));
  EXPECT_EQ(left(group(1)), "passes");  // hosts of version 1 are present
  EXPECT_EQ(left(group(2)), "passes");  // not known
  EXPECT_EQ(receivedRecord(3, group(2)), "passes");
  elect(lower_);
  join(1);
  EXPECT_EQ(left(group(0)), "passes");  // another router asks
  EXPECT_EQ(counted(IntakeRule::queryLimit), 0u);
}

TEST_F(IntakeReportsTest, withoutLastMemberQueriesNothingIsAsked) {
  config_->maxQueryBurstIs(1);
  querierConfig_->lastMemberQueryCountIs(0);
  join(1);
  EXPECT_EQ(left(group(0)), "passes");
}

TEST_F(IntakeReportsTest, blockBeyondTheBudgetIsRefused) {
  receivedRecord(5, group_, {source_});
  useUpBurst();
  EXPECT_EQ(receivedRecord(6, group_, {source_}), "refused: queryLimit");
  config_->maxQueryBurstIs(6);
  EXPECT_EQ(receivedRecord(6, group_, {source_}), "passes");
}

struct UnlistedCase {
  const char* name;
  U8 type;
  bool usesList;
};

class UnlistedSourcesTest : public IntakeReportsTest,
                            public testing::WithParamInterface<UnlistedCase> {
 protected:
  void SetUp() override {
    IntakeReportsTest::SetUp();
    config_->maxQueryBurstIs(1000000);
    for (U64 i = 0; i < 6; ++i) {
      receivedRecord(5, group(i), sources(250));
      receivedRecord(5, group(i), sources(250, 0x0a020001));
    }
  }
  static std::vector<Ilvo::V3Record> recordsWith(const std::vector<IpAddr>& list) {
    std::vector<Ilvo::V3Record> records;
    for (U64 i = 0; i < 6; ++i) {
      records.push_back({.type = GetParam().type, .group = group(i), .sources = list});
    }
    return records;
  }
};

TEST_P(UnlistedSourcesTest, areHandledForTwoGroupsOfFiveHundredAtOnce) {
  EXPECT_EQ(partsOf(recordsWith({})), 3u);
  EXPECT_EQ(querierStatus_->errorPacketReceived(), 0u);
  advance(3.0);
  EXPECT_EQ(querierStatus_->sources(), 0u);
}

TEST_P(UnlistedSourcesTest, areNotThoseThatTheRecordLists) {
  std::vector<IpAddr> list = sources(250);
  for (const IpAddr source : sources(250, 0x0a020001)) list.push_back(source);
  EXPECT_EQ(partsOf(recordsWith(list)), GetParam().usesList ? 3u : 6u);
}

INSTANTIATE_TEST_SUITE_P(RecordTypes, UnlistedSourcesTest,
                         testing::Values(UnlistedCase{"modeIsExclude", 2, true},
                                         UnlistedCase{"changeToInclude", 3, false},
                                         UnlistedCase{"changeToExclude", 4, true}),
                         [](const auto& instance) { return std::string(instance.param.name); });

// A packet may have 16 records of a group, whatever each costs.
TEST_P(UnlistedSourcesTest, doNotLetMoreRecordsOfAGroupPass) {
  const std::vector<Ilvo::V3Record> records(183, {.type = GetParam().type, .group = group(0)});
  EXPECT_LE(partsOf(records), 16u);
  EXPECT_EQ(counted(IntakeRule::groupRecordLimit), 183u - 16u);
}

TEST_F(IntakeReportsTest, leavesThatAreRefusedCostNothing) {
  std::vector<Ilvo::V3Record> records;
  for (U64 i = 0; i < 40; ++i) {
    receivedRecord(5, group(i), sources(300));
    records.push_back({.type = 3, .group = group(i)});
  }
  useUpBurst();
  EXPECT_EQ(partsOf(records), 1u);
  EXPECT_EQ(counted(IntakeRule::queryLimit), 40u);
  EXPECT_EQ(querierStatus_->sources(), 40u * 300u);
}

TEST_F(IntakeReportsTest, refreshThatLosesNoSourceIsHandledAtOnce) {
  std::vector<Ilvo::V3Record> records;
  for (U64 i = 0; i < 9; ++i) {
    records.push_back({.type = 2, .group = group(i), .sources = sources(100)});
  }
  EXPECT_EQ(partsOf(records), 1u);
  EXPECT_EQ(partsOf(records), 1u);
  EXPECT_EQ(querierStatus_->sources(), 900u);
}

// Each asks with a query of its own. No packet of 1,500 bytes has so many.
TEST_F(IntakeReportsTest, recordsThatAskAreHandledInPartsWhenThereAreManyOfThem) {
  join(400);
  std::vector<Ilvo::V3Record> records;
  for (U64 i = 0; i < 400; ++i) records.push_back({.type = 3, .group = group(i)});
  EXPECT_EQ(partsOf(records), 2u);
  records.resize(183);
  EXPECT_EQ(partsOf(records), 1u);
}

// A leave is refused, but what is joined is joined.
TEST_F(IntakeReportsTest, changeOfModeBeyondTheBudgetIsTakenWithoutAsking) {
  receivedRecord(2, group_);
  useUpBurst();
  EXPECT_EQ(receivedRecord(3, group_, {source_}), "changed: queryLimit");
  EXPECT_EQ(sourcesOf(group_), 1u);
  EXPECT_EQ(receivedRecord(4, group_, sources(2)), "changed: queryLimit");
  EXPECT_EQ(sourcesOf(group_), 2u);
  EXPECT_TRUE(sent_.empty());
  EXPECT_EQ(receivedRecord(4, group_), "passes");  // without a list it asks nothing
  EXPECT_EQ(querierStatus_->errorPacketReceived(), 0u);
}

TEST_F(IntakeReportsTest, groupsThatThePacketItselfMakesAreAskedForFromTheBudget) {
  config_->maxQueryBurstIs(2);
  EXPECT_EQ(receivedRecords({{.type = 2, .group = group(1)},
                             {.type = 3, .group = group(1)},
                             {.type = 2, .group = group(2)},
                             {.type = 3, .group = group(2)}}),
            "changed: queryLimit");
  advance(2.0);
  EXPECT_EQ(sent_.size(), 2u);
  EXPECT_EQ(groups(), 1u);
}

TEST_F(IntakeReportsTest, reportsThatTheQuerierDropsPass) {
  config_->maxGroupsIs(1);
  join(1);
  auto broken =
      Ilvo::buildV3Report({{.type = 2, .group = group(1), .numSources = 9}}, {.src = host_});
  EXPECT_EQ(received(broken), "passes");
  EXPECT_EQ(received(Ilvo::buildV3Report({{.type = 2, .group = group(1)}}, {.src = host_}, 2)),
            "passes");
  querierConfig_->querierVersionIs(Gmp::Igmp::igmpVersion2);
  EXPECT_EQ(receivedRecord(2, group(1)), "passes");
  EXPECT_EQ(groups(), 1u);
}

}  // namespace
}  // namespace Agent
