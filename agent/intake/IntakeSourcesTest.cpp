// Limits of sources: new ones are cut from the list of any record, known ones are refreshed.
#include "IntakeTestSupport.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Mox::U32;
using Mox::U8;

struct RecordCase {
  const char* name;
  U8 type;
};

class IntakeSourcesTest : public IntakeTest {
 protected:
  static constexpr IpAddr group2_{239, 1, 1, 2};
  static constexpr U32 more_ = 0x0a020001;  // sources that no group has yet

  void SetUp() override { start(); }

  static std::vector<IpAddr> joined(std::vector<IpAddr> a, const std::vector<IpAddr>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  }
};

class CutRecordTest : public IntakeSourcesTest, public testing::WithParamInterface<RecordCase> {};

TEST_P(CutRecordTest, newSourcesBeyondTheLimitOfTheGroupAreCut) {
  config_->maxGroupSourcesIs(3);
  EXPECT_EQ(receivedRecord(2, group_), "passes");
  EXPECT_EQ(receivedRecord(5, group_, sources(2)), "passes");
  EXPECT_EQ(receivedRecord(GetParam().type, group_, joined(sources(3, more_), sources(2))),
            "changed: groupSourceLimit");
  EXPECT_EQ(sourcesOf(group_), 3u);
  EXPECT_TRUE(querierStatus_->group(group_)->source(IpAddr(more_)));
  EXPECT_TRUE(querierStatus_->group(group_)->source(sources(1)[0]));
  EXPECT_EQ(counted(IntakeRule::groupSourceLimit), 2u);
  EXPECT_EQ(querierStatus_->errorPacketReceived(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    RecordTypes, CutRecordTest,
    testing::Values(RecordCase{"modeIsInclude", 1}, RecordCase{"modeIsExclude", 2},
                    RecordCase{"changeToInclude", 3}, RecordCase{"changeToExclude", 4},
                    RecordCase{"allowNewSources", 5}, RecordCase{"blockOldSources", 6}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(IntakeSourcesTest, knownSourcesAreRefreshedAtTheLimit) {
  config_->maxGroupSourcesIs(3);
  receivedRecord(5, group_, sources(3));
  advance(100.0);
  EXPECT_EQ(receivedRecord(5, group_, sources(3)), "passes");
  EXPECT_EQ(querierStatus_->group(group_)->source(sources(1)[0])->expiryTime(), 1360.0);
  EXPECT_EQ(status_->groupSourcesMost(), 3u);
}

TEST_F(IntakeSourcesTest, sourcesThatComeInSeveralRecordsAreCountedOnce) {
  config_->maxGroupSourcesIs(4);
  EXPECT_EQ(receivedRecords({{.type = 5, .group = group_, .sources = sources(3)},
                             {.type = 5, .group = group_, .sources = sources(3, more_)},
                             {.type = 5, .group = group2_, .sources = sources(4)}}),
            "changed: groupSourceLimit");
  EXPECT_EQ(sourcesOf(group_), 4u);
  EXPECT_EQ(sourcesOf(group2_), 4u);
  EXPECT_EQ(counted(IntakeRule::groupSourceLimit), 2u);
}

TEST_F(IntakeSourcesTest, listOfWhichNothingIsLeftIsDropped) {
  config_->maxGroupSourcesIs(2);
  receivedRecord(5, group_, sources(2));
  EXPECT_EQ(receivedRecord(5, group_, sources(2, more_)), "refused: groupSourceLimit");
  EXPECT_EQ(receivedRecords({{.type = 1, .group = group_, .sources = sources(1, more_)},
                             {.type = 2, .group = group2_}}),
            "changed: groupSourceLimit");
  EXPECT_EQ(sourcesOf(group_), 2u);
  EXPECT_TRUE(querierStatus_->group(group2_));
}

// Its host wants more than is left of the list: too much is delivered, not too little.
TEST_F(IntakeSourcesTest, changeToExcludeStaysWhenItsListIsCutToNothing) {
  config_->maxGroupSourcesIs(1);
  receivedRecord(5, group_, sources(1));
  EXPECT_EQ(receivedRecord(4, group_, sources(2, more_)), "changed: groupSourceLimit");
  EXPECT_EQ(querierStatus_->group(group_)->filterMode(), Gmp::Igmp::filterModeExclude);
}

TEST_F(IntakeSourcesTest, sourcesOfAllGroupsOfAnInterfaceAreLimited) {
  config_->maxSourcesIs(5);
  receivedRecord(5, group_, sources(3));
  EXPECT_EQ(receivedRecord(5, group2_, sources(3)), "changed: sourceLimit");
  EXPECT_EQ(sourcesOf(group2_), 2u);
  EXPECT_EQ(receivedRecord(5, group_, sources(3)), "passes");
  EXPECT_EQ(counted(IntakeRule::sourceLimit), 1u);
  EXPECT_EQ(status_->sourcesMost(), 5u);
  advance(260.0);
  EXPECT_EQ(receivedRecord(5, group2_, sources(5)), "passes");
}

TEST_F(IntakeSourcesTest, sourcesOfOtherInterfacesCountForTheProcess) {
  const auto other = Gmp::Igmp::querierStatusFactory();
  for (const IpAddr source : sources(4)) other->groupIs(group2_)->sourceIs(source);
  processConfig().maxProcessSourcesIs(6);
  EXPECT_EQ(receivedRecord(5, group_, sources(3)), "changed: processSourceLimit");
  EXPECT_EQ(sourcesOf(group_), 2u);
  EXPECT_EQ(counted(IntakeRule::processSourceLimit), 1u);
  receivedRecord(5, group_, sources(1));
  EXPECT_EQ(process_.status->sourcesMost(), 6u);
}

TEST_F(IntakeSourcesTest, addressesThatAreNoSourcesAreNotCounted) {
  config_->maxGroupSourcesIs(1);
  EXPECT_EQ(receivedRecord(5, group_, {IpAddr(), IpAddr(224, 0, 0, 1), source_}), "passes");
  EXPECT_EQ(sourcesOf(group_), 1u);
}

TEST_F(IntakeSourcesTest, auxiliaryDataOfACutRecordGoes) {
  config_->maxGroupSourcesIs(1);
  EXPECT_EQ(receivedRecords({{.type = 5, .group = group_, .sources = sources(3), .auxWords = 2},
                             {.type = 2, .group = group2_, .auxWords = 1}}),
            "changed: groupSourceLimit");
  EXPECT_EQ(sourcesOf(group_), 1u);
  EXPECT_TRUE(querierStatus_->group(group2_));
}

}  // namespace
}  // namespace Agent
