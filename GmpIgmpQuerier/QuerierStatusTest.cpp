#include <GmpIgmpQuerier/QuerierStatus.h>

#include <string>
#include <utility>
#include <vector>

#include <Mox/ActivityClock.h>
#include <gtest/gtest.h>

#include "EntityTableChecks.h"

namespace Gmp::Igmp {
namespace {

using Kind = Mox::AttrKind;

class StatusRecorder final : public QuerierStatus::NotifieeConst {
 public:
  StatusRecorder(const Ptr<QuerierStatus>& status, std::string& notified)
      : NotifieeConst(status), notified_(notified) {}
  void onState() override { notified_ += "state "; }
  void onQuerierVersion() override { notified_ += "querierVersion "; }
  void onGroup(IpAddr addr) override { notified_ += "group(" + addr.stringValue() + ") "; }
  void onGroupmoxImmediate() override { notified_ += "group! "; }
  void onGroup() override { notified_ += "group "; }
  void onCreationTime() override { notified_ += "creationTime "; }
  void onJoins() override { notified_ += "joins "; }
  void onElectedQuerierAddr() override { notified_ += "electedQuerierAddr "; }
  void onRobustness() override { notified_ += "robustness "; }
  void onQueryInterval() override { notified_ += "queryInterval "; }
  void onQueryResponseInterval() override { notified_ += "queryResponseInterval "; }
  void onStartupQueryInterval() override { notified_ += "startupQueryInterval "; }
  void onGeneralQueryExpiryTime() override { notified_ += "generalQueryExpiryTime "; }
  void onOtherQuerierExpiryTime() override { notified_ += "otherQuerierExpiryTime "; }
  void onV1QueriesSent() override { notified_ += "v1QueriesSent "; }
  void onV2QueriesSent() override { notified_ += "v2QueriesSent "; }
  void onV3QueriesSent() override { notified_ += "v3QueriesSent "; }
  void onV3GSQueriesSent() override { notified_ += "v3GSQueriesSent "; }
  void onV3GSSQueriesSent() override { notified_ += "v3GSSQueriesSent "; }
  void onV1QueriesReceived() override { notified_ += "v1QueriesReceived "; }
  void onV2QueriesReceived() override { notified_ += "v2QueriesReceived "; }
  void onV3QueriesReceived() override { notified_ += "v3QueriesReceived "; }
  void onV1ReportReceived() override { notified_ += "v1ReportReceived "; }
  void onV2ReportReceived() override { notified_ += "v2ReportReceived "; }
  void onV2LeaveReceived() override { notified_ += "v2LeaveReceived "; }
  void onV3ReportReceived() override { notified_ += "v3ReportReceived "; }
  void onErrorPacketReceived() override { notified_ += "errorPacketReceived "; }
  void onOtherPacketReceived() override { notified_ += "otherPacketReceived "; }
  void onMcastBoundaryPktReceived() override { notified_ += "mcastBoundaryPktReceived "; }

 private:
  std::string& notified_;
};

class QuerierStatusTest : public testing::Test {
 protected:
  ~QuerierStatusTest() override { Mox::realTimeIs(); }

  static Ptr<QuerierStatus> statusAt(Seconds time) {
    Mox::virtualTimeIs(time);
    return querierStatusFactory();
  }
  std::string notified() { return std::exchange(notified_, {}); }
  std::vector<std::string> groups() const {
    std::vector<std::string> addrs;
    for (auto at = status_->group().begin(); at != status_->group().end(); ++at) {
      EXPECT_EQ((*at)->groupAddr(), at.key());
      addrs.push_back(at.key().stringValue());
    }
    return addrs;
  }

  std::string notified_;
  const Ptr<QuerierStatus> status_ = statusAt(1000.25);
  const IpAddr groupA_{239, 1, 1, 1};
  const IpAddr groupB_{239, 1, 1, 2};
};
using Addrs = std::vector<std::string>;

TEST_F(QuerierStatusTest, beginsUndecidedWithTheDefaultsOfTheRfc) {
  EXPECT_EQ(status_->name(), "");
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateInitial);
  EXPECT_EQ(status_->querierVersion(), igmpVersionUnknown);
  EXPECT_TRUE(status_->group().empty());
  EXPECT_EQ(status_->electedQuerierAddr(), IpAddr(0, 0, 0, 0));
  EXPECT_EQ(status_->robustness(), 2u);
  EXPECT_EQ(status_->queryInterval(), 125.0);
  EXPECT_EQ(status_->queryResponseInterval(), 10.0);
  EXPECT_EQ(status_->startupQueryInterval(), 31.25);
  EXPECT_EQ(status_->groupMembershipInterval(), 260.0);
  EXPECT_EQ(status_->otherQuerierPresentInterval(), 255.0);
  EXPECT_EQ(status_->olderHostPresentInterval(), 260.0);
  EXPECT_EQ(status_->generalQueryExpiryTime(), 0.0);
  EXPECT_EQ(status_->otherQuerierExpiryTime(), 0.0);
}

TEST_F(QuerierStatusTest, beginsWithAllCountersAtZero) {
  int counters = 0;
  QuerierStatus::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (requires { row.inc; }) {
      ++counters;
      EXPECT_EQ(*status_.*row.member, 0u) << row.name;
    }
  });
  EXPECT_EQ(counters, 16);
  EXPECT_EQ(status_->totalGeneralQueriesSent(), 0u);
}

TEST_F(QuerierStatusTest, isBornAtTheTimeOfTheActivityClock) {
  EXPECT_EQ(status_->creationTime(), 1000.25);
  EXPECT_EQ(statusAt(2000.5)->creationTime(), 2000.5);
}

TEST_F(QuerierStatusTest, hasTheseAttributes) {
  const std::vector<TableRow> expected{
      {257, "name", Kind::constant},
      {258, "state", Kind::stored},
      {259, "querierVersion", Kind::stored},
      {260, "group", Kind::collection},
      {261, "creationTime", Kind::stored},
      {262, "joins", Kind::counter},
      {263, "electedQuerierAddr", Kind::stored},
      {264, "robustness", Kind::stored},
      {265, "queryInterval", Kind::stored},
      {266, "queryResponseInterval", Kind::stored},
      {267, "startupQueryInterval", Kind::stored},
      {268, "groupMembershipInterval", Kind::derived},
      {269, "otherQuerierPresentInterval", Kind::derived},
      {270, "olderHostPresentInterval", Kind::derived},
      {271, "generalQueryExpiryTime", Kind::stored},
      {272, "otherQuerierExpiryTime", Kind::stored},
      {273, "v1QueriesSent", Kind::counter},
      {274, "v2QueriesSent", Kind::counter},
      {275, "v3QueriesSent", Kind::counter},
      {276, "v3GSQueriesSent", Kind::counter},
      {277, "v3GSSQueriesSent", Kind::counter},
      {278, "totalGeneralQueriesSent", Kind::derived},
      {279, "v1QueriesReceived", Kind::counter},
      {280, "v2QueriesReceived", Kind::counter},
      {281, "v3QueriesReceived", Kind::counter},
      {282, "v1ReportReceived", Kind::counter},
      {283, "v2ReportReceived", Kind::counter},
      {284, "v2LeaveReceived", Kind::counter},
      {285, "v3ReportReceived", Kind::counter},
      {286, "errorPacketReceived", Kind::counter},
      {287, "otherPacketReceived", Kind::counter},
      {288, "mcastBoundaryPktReceived", Kind::counter},
  };
  EXPECT_EQ(tableOf<QuerierStatus>(), expected);
}

TEST_F(QuerierStatusTest, settersNotifyTheirOwnSlot) {
  expectSettersToNotifyTheirOwnSlot<StatusRecorder>(status_);
}

TEST_F(QuerierStatusTest, countersWrapAndNotifyTheirOwnSlot) {
  EXPECT_EQ(expectCountersToWrapAndNotify<StatusRecorder>(status_), 16);
}

TEST_F(QuerierStatusTest, gettersReadWhatTheirSettersWrote) {
  status_->stateIs(QuerierStatus::querierStateQuerier);
  status_->querierVersionIs(igmpVersion3);
  status_->creationTimeIs(1.0);
  status_->joinsIs(0x100000001);
  status_->electedQuerierAddrIs(groupA_);
  status_->robustnessIs(3);
  status_->queryIntervalIs(4.0);
  status_->queryResponseIntervalIs(5.0);
  status_->startupQueryIntervalIs(6.0);
  status_->generalQueryExpiryTimeIs(7.0);
  status_->otherQuerierExpiryTimeIs(8.0);
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateQuerier);
  EXPECT_EQ(status_->querierVersion(), igmpVersion3);
  EXPECT_EQ(status_->creationTime(), 1.0);
  EXPECT_EQ(status_->joins(), 0x100000001u);
  EXPECT_EQ(status_->electedQuerierAddr(), groupA_);
  EXPECT_EQ(status_->robustness(), 3u);
  EXPECT_EQ(status_->queryInterval(), 4.0);
  EXPECT_EQ(status_->queryResponseInterval(), 5.0);
  EXPECT_EQ(status_->startupQueryInterval(), 6.0);
  EXPECT_EQ(status_->generalQueryExpiryTime(), 7.0);
  EXPECT_EQ(status_->otherQuerierExpiryTime(), 8.0);
}

TEST_F(QuerierStatusTest, everyCounterCountsByItself) {
  status_->v1QueriesSentInc(1);
  status_->v2QueriesSentInc(2);
  status_->v3QueriesSentInc(3);
  status_->v3GSQueriesSentInc(4);
  status_->v3GSSQueriesSentInc(5);
  status_->v1QueriesReceivedInc(6);
  status_->v2QueriesReceivedInc(7);
  status_->v3QueriesReceivedInc(8);
  status_->v1ReportReceivedInc(9);
  status_->v2ReportReceivedInc(10);
  status_->v2LeaveReceivedInc(11);
  status_->v3ReportReceivedInc(12);
  status_->errorPacketReceivedInc(13);
  status_->otherPacketReceivedInc(14);
  status_->mcastBoundaryPktReceivedInc(15);
  EXPECT_EQ(status_->joinsInc(16), 16u);
  EXPECT_EQ(status_->v1QueriesSent(), 1u);
  EXPECT_EQ(status_->v2QueriesSent(), 2u);
  EXPECT_EQ(status_->v3QueriesSent(), 3u);
  EXPECT_EQ(status_->v3GSQueriesSent(), 4u);
  EXPECT_EQ(status_->v3GSSQueriesSent(), 5u);
  EXPECT_EQ(status_->v1QueriesReceived(), 6u);
  EXPECT_EQ(status_->v2QueriesReceived(), 7u);
  EXPECT_EQ(status_->v3QueriesReceived(), 8u);
  EXPECT_EQ(status_->v1ReportReceived(), 9u);
  EXPECT_EQ(status_->v2ReportReceived(), 10u);
  EXPECT_EQ(status_->v2LeaveReceived(), 11u);
  EXPECT_EQ(status_->v3ReportReceived(), 12u);
  EXPECT_EQ(status_->errorPacketReceived(), 13u);
  EXPECT_EQ(status_->otherPacketReceived(), 14u);
  EXPECT_EQ(status_->mcastBoundaryPktReceived(), 15u);
  EXPECT_EQ(status_->joins(), 16u);
  EXPECT_EQ(status_->totalGeneralQueriesSent(), 6u)
      << "specific queries have counters of their own";
}

TEST_F(QuerierStatusTest, joinsCountBeyond32Bits) {
  status_->joinsIs(0xffffffffu);
  EXPECT_EQ(status_->joinsInc(1), 0x100000000u);
}

TEST_F(QuerierStatusTest, totalOfQueriesWrapsLikeItsParts) {
  status_->v1QueriesSentIs(0xffffffffu);
  status_->v2QueriesSentIs(2);
  status_->v3QueriesSentIs(3);
  EXPECT_EQ(status_->totalGeneralQueriesSent(), 4u);
}

TEST_F(QuerierStatusTest, derivedIntervalsFollowWithoutANotificationOfTheirOwn) {
  IdRecorder ids(*status_);
  status_->robustnessIs(3);
  status_->queryIntervalIs(60.0);
  status_->queryResponseIntervalIs(5.0);
  EXPECT_EQ(ids.notified(), "264 265 266 ");
  EXPECT_EQ(status_->groupMembershipInterval(), 185.0);
  EXPECT_EQ(status_->otherQuerierPresentInterval(), 182.5);
  EXPECT_EQ(status_->olderHostPresentInterval(), 185.0);
  status_->v1QueriesSentInc(1);
  EXPECT_EQ(ids.notified(), "273 ");
  status_->notifieeRemove(&ids);
}

TEST_F(QuerierStatusTest, derivedIntervalsDoNotWrap) {
  status_->robustnessIs(0xffffffffu);
  EXPECT_EQ(status_->groupMembershipInterval(), 4294967295.0 * 125.0 + 10.0);
  EXPECT_EQ(status_->otherQuerierPresentInterval(), 4294967295.0 * 125.0 + 5.0);
  EXPECT_EQ(status_->olderHostPresentInterval(), 4294967295.0 * 125.0 + 10.0);
}

TEST_F(QuerierStatusTest, groupIsMadeOnceAndNotifiedOnce) {
  const StatusRecorder recorder(status_, notified_);
  const Ptr<QuerierGroupStatus> group = status_->groupIs(groupA_);
  EXPECT_EQ(group->groupAddr(), groupA_);
  EXPECT_EQ(notified(), "group! group(239.1.1.1) ");
  EXPECT_EQ(status_->groupIs(groupA_), group);
  EXPECT_EQ(status_->group(groupA_), group);
  EXPECT_EQ(notified(), "");
  EXPECT_EQ(groups(), Addrs{"239.1.1.1"});
}

TEST_F(QuerierStatusTest, groupKnowsWhereItBelongs) {
  const Ptr<QuerierGroupStatus> group = status_->groupIs(groupA_);
  EXPECT_EQ(group->parent(), status_.get());
  EXPECT_EQ(group->parentAttrName(), "group");
  EXPECT_EQ(group->fullName(), "Gmp::Igmp::QuerierStatus/group[239.1.1.1]");
}

TEST_F(QuerierStatusTest, groupsIterateInAddressOrder) {
  for (const IpAddr addr : {IpAddr(239, 1, 1, 2), IpAddr(224, 0, 1, 5), IpAddr(230, 0, 0, 1)}) {
    status_->groupIs(addr);
  }
  EXPECT_EQ(groups(), (Addrs{"224.0.1.5", "230.0.0.1", "239.1.1.2"}));
}

TEST_F(QuerierStatusTest, absentGroupIsNull) {
  const StatusRecorder recorder(status_, notified_);
  EXPECT_FALSE(status_->group(groupA_));
  EXPECT_FALSE(status_->groupDel(groupA_));
  EXPECT_EQ(notified(), "");
}

TEST_F(QuerierStatusTest, deletedGroupIsNotifiedAndLivesOnWhileItIsHeld) {
  const Ptr<QuerierGroupStatus> group = status_->groupIs(groupA_);
  group->sourceIs(IpAddr(10, 0, 0, 1));
  const StatusRecorder recorder(status_, notified_);
  EXPECT_EQ(status_->groupDel(groupA_), group);
  EXPECT_EQ(notified(), "group! group(239.1.1.1) ");
  EXPECT_EQ(group->parent(), nullptr);
  EXPECT_FALSE(status_->group(groupA_));
  EXPECT_EQ(group->refs(), 1u);
  EXPECT_EQ(group->source().size(), 1u) << "its sources go with it, not before";
}

TEST_F(QuerierStatusTest, groupIsDeletedByIterator) {
  const Ptr<QuerierGroupStatus> group = status_->groupIs(groupA_);
  status_->groupIs(groupB_);
  const StatusRecorder recorder(status_, notified_);
  EXPECT_EQ(status_->groupDel(status_->group().begin()), group);
  EXPECT_EQ(notified(), "group! group(239.1.1.1) ");
  EXPECT_EQ(groups(), Addrs{"239.1.1.2"});
}

TEST_F(QuerierStatusTest, deletingAllNotifiesEachGroupInAddressOrder) {
  status_->groupIs(groupB_);
  status_->groupIs(groupA_);
  const StatusRecorder recorder(status_, notified_);
  status_->groupDelAll();
  EXPECT_EQ(notified(), "group! group(239.1.1.1) group! group(239.1.1.2) ");
  EXPECT_TRUE(status_->group().empty());
}

TEST_F(QuerierStatusTest, notifyingAGroupChangesNothing) {
  const StatusRecorder recorder(status_, notified_);
  status_->groupNotify(groupA_);
  EXPECT_EQ(notified(), "group! group(239.1.1.1) ");
  status_->groupNotify();
  EXPECT_EQ(notified(), "group ");
  EXPECT_TRUE(status_->group().empty());
}

TEST_F(QuerierStatusTest, destroyedStatusLetsItsGroupsGoOneByOne) {
  Ptr<QuerierStatus> status = querierStatusFactory();
  const Ptr<QuerierGroupStatus> group = status->groupIs(groupB_);
  status->groupIs(groupA_);
  { const StatusRecorder once(status, notified_); }
  IdRecorder ids(*status);
  status = nullptr;
  EXPECT_EQ(ids.notified(), "260(239.1.1.1) 260(239.1.1.2) ");
  EXPECT_EQ(group->parent(), nullptr);
  EXPECT_EQ(group->refs(), 1u);
}

TEST_F(QuerierStatusTest, sourcesOfAllGroupsAreCounted) {
  const Ptr<QuerierStatus> status = querierStatusFactory();
  const Ptr<QuerierGroupStatus> first = status->groupIs(IpAddr(239, 1, 1, 1));
  const Ptr<QuerierGroupStatus> second = status->groupIs(IpAddr(239, 1, 1, 2));
  first->sourceIs(IpAddr(10, 0, 0, 1));
  first->sourceIs(IpAddr(10, 0, 0, 1));
  first->sourceIs(IpAddr(10, 0, 0, 2));
  second->sourceIs(IpAddr(10, 0, 0, 1));
  EXPECT_EQ(status->sources(), 3u);
  first->sourceDel(IpAddr(10, 0, 0, 2));
  EXPECT_EQ(status->sources(), 2u);
  status->groupDel(IpAddr(239, 1, 1, 1));
  EXPECT_EQ(status->sources(), 1u);
  first->sourceIs(IpAddr(10, 0, 0, 3));  // of a group that is no member any more
  EXPECT_EQ(status->sources(), 1u);
  second->sourceDelAll();
  EXPECT_EQ(status->sources(), 0u);
}

// A copy is filled by code that knows types by their tables only.
TEST_F(QuerierStatusTest, membersAddedByNameAreCountedAsWell) {
  const Ptr<QuerierStatus> status = querierStatusFactory();
  const auto added = status->type().collection("group")->add(*status, 0xef010101);
  const Mox::CollectionInfo& sources = *added->type().collection("source");
  sources.add(*added, 0x0a000001);
  sources.add(*added, 0x0a000002);
  EXPECT_EQ(status->sources(), 2u);
  sources.remove(*added, 0x0a000001);
  EXPECT_EQ(status->sources(), 1u);
}

TEST_F(QuerierStatusTest, groupsAndSourcesOfTheProcessAreCountedUntilTheirStatusGoes) {
  const MembershipCount before = membershipInProcess();
  {
    const Ptr<QuerierStatus> one = querierStatusFactory();
    const Ptr<QuerierStatus> other = querierStatusFactory();
    one->groupIs(IpAddr(239, 1, 1, 1))->sourceIs(IpAddr(10, 0, 0, 1));
    other->groupIs(IpAddr(239, 1, 1, 1))->sourceIs(IpAddr(10, 0, 0, 1));
    EXPECT_EQ(membershipInProcess().groups, before.groups + 2);
    EXPECT_EQ(membershipInProcess().sources, before.sources + 2);
    one->groupDelAll();
    EXPECT_EQ(membershipInProcess().groups, before.groups + 1);
    EXPECT_EQ(membershipInProcess().sources, before.sources + 1);
  }
  EXPECT_EQ(membershipInProcess().groups, before.groups);
  EXPECT_EQ(membershipInProcess().sources, before.sources);
}

}  // namespace
}  // namespace Gmp::Igmp
