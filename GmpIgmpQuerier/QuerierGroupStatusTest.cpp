#include <GmpIgmpQuerier/QuerierGroupStatus.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <Mox/ActivityClock.h>
#include <gtest/gtest.h>

#include "EntityTableChecks.h"

namespace Gmp::Igmp {
namespace {

using Kind = Mox::AttrKind;

class GroupRecorder final : public QuerierGroupStatus::NotifieeConst {
 public:
  GroupRecorder(const Ptr<QuerierGroupStatus>& group, std::string& notified)
      : NotifieeConst(group), notified_(notified) {}
  void onFilterMode() override { notified_ += "filterMode "; }
  void onSource(IpAddr addr) override { notified_ += "source(" + addr.stringValue() + ") "; }
  void onSourcemoxImmediate() override { notified_ += "source! "; }
  void onSource() override { notified_ += "source "; }
  void onCompatibilityMode() override { notified_ += "compatibilityMode "; }
  void onCreationTime() override { notified_ += "creationTime "; }
  void onExpiryTime() override { notified_ += "expiryTime "; }
  void onLastReporter() override { notified_ += "lastReporter "; }

 private:
  std::string& notified_;
};

class SourceRecorder final : public QuerierSourceStatus::NotifieeConst {
 public:
  SourceRecorder(const Ptr<QuerierSourceStatus>& source, std::string& notified)
      : NotifieeConst(source), notified_(notified) {}
  void onExpired() override { notified_ += "expired "; }
  void onCreationTime() override { notified_ += "creationTime "; }
  void onExpiryTime() override { notified_ += "expiryTime "; }

 private:
  std::string& notified_;
};

class QuerierGroupStatusTest : public testing::Test {
 protected:
  std::string notified() { return std::exchange(notified_, {}); }

  std::string notified_;
  const Ptr<QuerierGroupStatus> group_ = makePtr<QuerierGroupStatus>(IpAddr(239, 1, 2, 3));
  const IpAddr a_{10, 0, 0, 1};
  const IpAddr b_{10, 0, 0, 2};
  const IpAddr c_{10, 0, 0, 3};
};

TEST_F(QuerierGroupStatusTest, beginsInIncludeWithoutSourcesAndWithoutTimes) {
  Mox::virtualTimeIs(1000.0);
  const Ptr<QuerierGroupStatus> group = makePtr<QuerierGroupStatus>(IpAddr(239, 1, 2, 3));
  Mox::realTimeIs();
  EXPECT_EQ(group->name(), "");
  EXPECT_EQ(group->groupAddr(), IpAddr(239, 1, 2, 3));
  EXPECT_EQ(group->filterMode(), filterModeInclude);
  EXPECT_EQ(group->compatibilityMode(), igmpVersion3);
  EXPECT_EQ(group->creationTime(), 0.0);
  EXPECT_EQ(group->expiryTime(), 0.0);
  EXPECT_EQ(group->lastReporter(), IpAddr(0, 0, 0, 0));
  EXPECT_TRUE(group->source().empty());
}

TEST_F(QuerierGroupStatusTest, hasTheseAttributes) {
  const std::vector<TableRow> expected{
      {257, "name", Kind::constant},
      {258, "groupAddr", Kind::key},
      {259, "filterMode", Kind::stored},
      {260, "source", Kind::collection},
      {261, "compatibilityMode", Kind::stored},
      {262, "creationTime", Kind::stored},
      {263, "expiryTime", Kind::stored},
      {264, "lastReporter", Kind::stored},
  };
  EXPECT_EQ(tableOf<QuerierGroupStatus>(), expected);
}

TEST_F(QuerierGroupStatusTest, settersNotifyTheirOwnSlot) {
  expectSettersToNotifyTheirOwnSlot<GroupRecorder>(group_);
}

TEST_F(QuerierGroupStatusTest, gettersReadWhatTheirSettersWrote) {
  group_->filterModeIs(filterModeExclude);
  group_->compatibilityModeIs(igmpVersion1);
  group_->creationTimeIs(1.5);
  group_->expiryTimeIs(never);
  group_->lastReporterIs(a_);
  EXPECT_EQ(group_->filterMode(), filterModeExclude);
  EXPECT_EQ(group_->compatibilityMode(), igmpVersion1);
  EXPECT_EQ(group_->creationTime(), 1.5);
  EXPECT_EQ(group_->expiryTime(), never);
  EXPECT_EQ(group_->lastReporter(), a_);
}

TEST_F(QuerierGroupStatusTest, expiryThatStaysNeverNotifiesNobody) {
  group_->expiryTimeIs(never);
  const GroupRecorder recorder(group_, notified_);
  group_->expiryTimeIs(never);
  EXPECT_EQ(notified(), "");
}

TEST_F(QuerierGroupStatusTest, sourceIsMadeOnceAndNotifiedOnce) {
  const GroupRecorder recorder(group_, notified_);
  const Ptr<QuerierSourceStatus> source = group_->sourceIs(a_);
  EXPECT_EQ(source->sourceAddr(), a_);
  EXPECT_EQ(notified(), "source! source(10.0.0.1) ");
  EXPECT_EQ(group_->sourceIs(a_), source);
  EXPECT_EQ(group_->source(a_), source);
  EXPECT_EQ(group_->source().size(), 1u);
  EXPECT_EQ(notified(), "");
}

TEST_F(QuerierGroupStatusTest, sourceKnowsWhereItBelongs) {
  const Ptr<QuerierSourceStatus> source = group_->sourceIs(a_);
  EXPECT_EQ(source->parent(), group_.get());
  EXPECT_EQ(source->parentAttrName(), "source");
  EXPECT_EQ(source->fullName(), "Gmp::Igmp::QuerierGroupStatus/source[10.0.0.1]");
}

TEST_F(QuerierGroupStatusTest, absentSourceIsNull) {
  const GroupRecorder recorder(group_, notified_);
  EXPECT_FALSE(group_->source(a_));
  EXPECT_FALSE(group_->sourceDel(a_));
  EXPECT_EQ(notified(), "");
}

TEST_F(QuerierGroupStatusTest, deletedSourceIsNotifiedAndLivesOnWhileItIsHeld) {
  const Ptr<QuerierSourceStatus> source = group_->sourceIs(a_);
  group_->sourceIs(b_);
  const GroupRecorder recorder(group_, notified_);
  EXPECT_EQ(group_->sourceDel(a_), source);
  EXPECT_EQ(notified(), "source! source(10.0.0.1) ");
  EXPECT_EQ(source->parent(), nullptr);
  EXPECT_EQ(source->refs(), 1u);
  EXPECT_FALSE(group_->source(a_));
  EXPECT_TRUE(group_->source(b_));
}

TEST_F(QuerierGroupStatusTest, sourceIsDeletedByIterator) {
  const Ptr<QuerierSourceStatus> source = group_->sourceIs(a_);
  const GroupRecorder recorder(group_, notified_);
  EXPECT_EQ(group_->sourceDel(group_->source().begin()), source);
  EXPECT_EQ(notified(), "source! source(10.0.0.1) ");
  EXPECT_TRUE(group_->source().empty());
}

TEST_F(QuerierGroupStatusTest, sourceOfAddressZeroIsASourceLikeAnyOther) {
  const Ptr<QuerierSourceStatus> source = group_->sourceIs(IpAddr());
  EXPECT_EQ(group_->source(IpAddr()), source);
  EXPECT_EQ(group_->sourceDel(IpAddr()), source);
  EXPECT_FALSE(group_->source(IpAddr()));
}

TEST_F(QuerierGroupStatusTest, deletingAllNotifiesEachSourceOnce) {
  for (const IpAddr addr : {a_, b_, c_}) group_->sourceIs(addr);
  IdRecorder ids(*group_);
  group_->sourceDelAll();
  EXPECT_TRUE(group_->source().empty());
  const std::string notified = ids.notified();
  EXPECT_EQ(std::count(notified.begin(), notified.end(), ' '), 3);
  for (const IpAddr addr : {a_, b_, c_}) {
    EXPECT_NE(notified.find("260(" + addr.stringValue() + ") "), std::string::npos) << notified;
  }
  group_->notifieeRemove(&ids);
}

TEST_F(QuerierGroupStatusTest, notifyingASourceChangesNothing) {
  const GroupRecorder recorder(group_, notified_);
  group_->sourceNotify(a_);
  EXPECT_EQ(notified(), "source! source(10.0.0.1) ");
  group_->sourceNotify();
  EXPECT_EQ(notified(), "source ");
  EXPECT_TRUE(group_->source().empty());
}

TEST_F(QuerierGroupStatusTest, destroyedGroupLetsItsThreeSourcesGoOneByOne) {
  Ptr<QuerierGroupStatus> group = makePtr<QuerierGroupStatus>(IpAddr(239, 1, 2, 4));
  std::vector<Ptr<QuerierSourceStatus>> sources;
  for (const IpAddr addr : {a_, b_, c_}) sources.push_back(group->sourceIs(addr));
  { const GroupRecorder once(group, notified_); }
  IdRecorder ids(*group);
  group = nullptr;
  const std::string notified = ids.notified();
  EXPECT_EQ(std::count(notified.begin(), notified.end(), ' '), 3) << notified;
  for (const Ptr<QuerierSourceStatus>& source : sources) {
    EXPECT_EQ(source->parent(), nullptr);
    EXPECT_EQ(source->refs(), 1u);
  }
}

TEST(QuerierSourceStatus, beginsRunningWithoutTimes) {
  const Ptr<QuerierSourceStatus> source = makePtr<QuerierSourceStatus>(IpAddr(10, 0, 0, 1));
  EXPECT_EQ(source->name(), "");
  EXPECT_EQ(source->sourceAddr(), IpAddr(10, 0, 0, 1));
  EXPECT_FALSE(source->expired());
  EXPECT_EQ(source->creationTime(), 0.0);
  EXPECT_EQ(source->expiryTime(), 0.0);
}

TEST(QuerierSourceStatus, hasTheseAttributes) {
  const std::vector<TableRow> expected{
      {257, "name", Kind::constant},     {258, "sourceAddr", Kind::key},
      {259, "expired", Kind::stored},    {260, "creationTime", Kind::stored},
      {261, "expiryTime", Kind::stored},
  };
  EXPECT_EQ(tableOf<QuerierSourceStatus>(), expected);
}

TEST(QuerierSourceStatus, settersNotifyTheirOwnSlot) {
  expectSettersToNotifyTheirOwnSlot<SourceRecorder>(
      makePtr<QuerierSourceStatus>(IpAddr(10, 0, 0, 1)));
}

TEST(QuerierSourceStatus, gettersReadWhatTheirSettersWrote) {
  const Ptr<QuerierSourceStatus> source = makePtr<QuerierSourceStatus>(IpAddr(10, 0, 0, 1));
  source->expiredIs(true);
  source->creationTimeIs(1.5);
  source->expiryTimeIs(never);
  EXPECT_TRUE(source->expired());
  EXPECT_EQ(source->creationTime(), 1.5);
  EXPECT_EQ(source->expiryTime(), never);
}

}  // namespace
}  // namespace Gmp::Igmp
