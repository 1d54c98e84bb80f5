// Every attribute of the state model's entities by name and identifier, against the direct
// accessors.
#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/ModelTypes.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AccessChecks.h"

namespace Gmp::Igmp {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

TEST(GenericAccess, configurationReadsAndWritesAsDirectly) {
  using C = QuerierConfig;
  const Ptr<C> config = makePtr<C>("vlan10");
  AccessChecks checks(typeOf("Gmp::Igmp::QuerierConfig"));
  checks.readOnly(*config, "name", &C::name);
  checks.written(*config, "robustness", &C::robustness);
  checks.written(*config, "queryInterval", &C::queryInterval);
  checks.written(*config, "queryResponseInterval", &C::queryResponseInterval);
  checks.written(*config, "startupQueryInterval", &C::startupQueryInterval);
  checks.written(*config, "startupQueryCount", &C::startupQueryCount);
  checks.written(*config, "lastMemberQueryInterval", &C::lastMemberQueryInterval);
  checks.written(*config, "querierVersion", &C::querierVersion);
  checks.written(*config, "lastMemberQueryCount", &C::lastMemberQueryCount);
  checks.readOnly(*config, "lastMemberQueryTime", &C::lastMemberQueryTime);
  checks.written(*config, "addRandomDelayToTimer", &C::addRandomDelayToTimer);
  checks.written(*config, "sendQuery", &C::sendQuery);
  checks.expectAllSeen();
}

TEST(GenericAccess, statusReadsAndWritesAsDirectly) {
  using S = QuerierStatus;
  const Ptr<S> status = makePtr<S>();
  AccessChecks checks(typeOf("Gmp::Igmp::QuerierStatus"));
  checks.readOnly(*status, "name", &S::name);
  checks.written(*status, "state", &S::state);
  checks.written(*status, "querierVersion", &S::querierVersion);
  checks.other("group");
  checks.written(*status, "creationTime", &S::creationTime);
  checks.written(*status, "joins", &S::joins);
  checks.written(*status, "electedQuerierAddr", &S::electedQuerierAddr);
  checks.written(*status, "robustness", &S::robustness);
  checks.written(*status, "queryInterval", &S::queryInterval);
  checks.written(*status, "queryResponseInterval", &S::queryResponseInterval);
  checks.written(*status, "startupQueryInterval", &S::startupQueryInterval);
  checks.readOnly(*status, "groupMembershipInterval", &S::groupMembershipInterval);
  checks.readOnly(*status, "otherQuerierPresentInterval", &S::otherQuerierPresentInterval);
  checks.readOnly(*status, "olderHostPresentInterval", &S::olderHostPresentInterval);
  checks.written(*status, "generalQueryExpiryTime", &S::generalQueryExpiryTime);
  checks.written(*status, "otherQuerierExpiryTime", &S::otherQuerierExpiryTime);
  checks.written(*status, "v1QueriesSent", &S::v1QueriesSent);
  checks.written(*status, "v2QueriesSent", &S::v2QueriesSent);
  checks.written(*status, "v3QueriesSent", &S::v3QueriesSent);
  checks.written(*status, "v3GSQueriesSent", &S::v3GSQueriesSent);
  checks.written(*status, "v3GSSQueriesSent", &S::v3GSSQueriesSent);
  checks.readOnly(*status, "totalGeneralQueriesSent", &S::totalGeneralQueriesSent);
  checks.written(*status, "v1QueriesReceived", &S::v1QueriesReceived);
  checks.written(*status, "v2QueriesReceived", &S::v2QueriesReceived);
  checks.written(*status, "v3QueriesReceived", &S::v3QueriesReceived);
  checks.written(*status, "v1ReportReceived", &S::v1ReportReceived);
  checks.written(*status, "v2ReportReceived", &S::v2ReportReceived);
  checks.written(*status, "v2LeaveReceived", &S::v2LeaveReceived);
  checks.written(*status, "v3ReportReceived", &S::v3ReportReceived);
  checks.written(*status, "errorPacketReceived", &S::errorPacketReceived);
  checks.written(*status, "otherPacketReceived", &S::otherPacketReceived);
  checks.written(*status, "mcastBoundaryPktReceived", &S::mcastBoundaryPktReceived);
  checks.expectAllSeen();
}

TEST(GenericAccess, groupAndSourceReadAndWriteAsDirectly) {
  using G = QuerierGroupStatus;
  using S = QuerierSourceStatus;
  const Ptr<QuerierStatus> status = makePtr<QuerierStatus>();
  const Ptr<G> group = status->groupIs(IpAddr(239, 1, 1, 1));
  AccessChecks groups(typeOf("Gmp::Igmp::QuerierGroupStatus"));
  groups.readOnly(*group, "name", &G::name);
  groups.readOnly(*group, "groupAddr", &G::groupAddr);
  groups.written(*group, "filterMode", &G::filterMode);
  groups.other("source");
  groups.written(*group, "compatibilityMode", &G::compatibilityMode);
  groups.written(*group, "creationTime", &G::creationTime);
  groups.written(*group, "expiryTime", &G::expiryTime);
  groups.written(*group, "lastReporter", &G::lastReporter);
  groups.expectAllSeen();

  const Ptr<S> source = group->sourceIs(IpAddr(10, 0, 0, 1));
  AccessChecks sources(typeOf("Gmp::Igmp::QuerierSourceStatus"));
  sources.readOnly(*source, "name", &S::name);
  sources.readOnly(*source, "sourceAddr", &S::sourceAddr);
  sources.written(*source, "expired", &S::expired);
  sources.written(*source, "creationTime", &S::creationTime);
  sources.written(*source, "expiryTime", &S::expiryTime);
  sources.expectAllSeen();
  EXPECT_EQ(Mox::attrValue(*source, "fullName"),
            Mox::Value(std::string("Gmp::Igmp::QuerierStatus/group[239.1.1.1]/source[10.0.0.1]")));
}

TEST(GenericAccess, totalOfGeneralQueriesOfAFreshStatusIsZeroAndWritingItHasNoEffect) {
  const Ptr<QuerierStatus> status = makePtr<QuerierStatus>();
  EXPECT_EQ(Mox::attrValue(*status, 278), Mox::Value(Mox::U64{0}));
  EXPECT_FALSE(Mox::attrValueIs(*status, 278, Mox::Value(Mox::U64{7})));
  EXPECT_EQ(status->totalGeneralQueriesSent(), 0u);
  status->v2QueriesSentIs(3);
  EXPECT_EQ(Mox::attrValue(*status, 278), Mox::Value(Mox::U64{3}));
}

// Counts its notifications.
class ConfigWatcher final : public QuerierConfig::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onQueryInterval() override { ++notified; }
  int notified = 0;
};

TEST(GenericAccess, aGenericWriteNotifiesAsADirectOne) {
  const Ptr<QuerierConfig> config = makePtr<QuerierConfig>("vlan10");
  const ConfigWatcher notifiee(config);
  EXPECT_TRUE(Mox::attrValueIs(*config, "queryInterval", Mox::Value(60.0)));
  EXPECT_EQ(notifiee.notified, 1);
  EXPECT_TRUE(Mox::attrValueIs(*config, "queryInterval", Mox::Value(60.0)));
  EXPECT_EQ(notifiee.notified, 1);
}

// Writes down the groups that it is notified of, and removes each of them if its test asks for it.
class GroupWatcher final : public QuerierStatus::NotifieeConst {
 public:
  explicit GroupWatcher(const Ptr<QuerierStatus>& status)
      : NotifieeConst(status), status_(*status) {}
  using NotifieeConst::onGroup;
  void onGroup(IpAddr addr) override {
    notified += addr.stringValue() + " ";
    if (removing && status_.group(addr)) status_.groupDel(addr);
  }
  std::string notified;
  bool removing = false;

 private:
  QuerierStatus& status_;
};

TEST(GenericAccess, membersAddedAndRemovedByKeyAreNotifiedOnce) {
  const Ptr<QuerierStatus> status = makePtr<QuerierStatus>();
  const Mox::CollectionInfo& groups = *status->type().collection("group");
  const GroupWatcher notifiee(status);
  const U32 key = IpAddr(239, 1, 1, 2).value();
  groups.add(*status, key);
  groups.add(*status, key);
  EXPECT_EQ(notifiee.notified, "239.1.1.2 ");
  groups.remove(*status, key);
  groups.remove(*status, key);
  EXPECT_EQ(notifiee.notified, "239.1.1.2 239.1.1.2 ");
}

TEST(GenericAccess, memberRemovedByItsNotificationIsStillReturned) {
  const Ptr<QuerierStatus> status = makePtr<QuerierStatus>();
  GroupWatcher notifiee(status);
  notifiee.removing = true;
  const Ptr<Mox::EntityBase> made =
      status->type().collection("group")->add(*status, IpAddr(239, 1, 1, 2).value());
  EXPECT_EQ(made->keyText(), "239.1.1.2");
  EXPECT_EQ(made->parent(), nullptr);
  EXPECT_TRUE(status->group().empty());
}

TEST(GenericAccess, collectionIsReadMadeDeletedAndWalkedByKey) {
  const Ptr<QuerierStatus> status = makePtr<QuerierStatus>();
  const Mox::CollectionInfo& groups = *typeOf("Gmp::Igmp::QuerierStatus").collection("group");
  const U32 b = *groups.keyOf("239.1.1.2");
  const U32 a = *groups.keyOf("224.0.1.5");
  EXPECT_EQ(groups.find(*status, a), nullptr);
  const Ptr<Mox::EntityBase> made = groups.add(*status, b);
  groups.add(*status, a);
  EXPECT_EQ(groups.add(*status, b), made);
  EXPECT_EQ(status->group(IpAddr(239, 1, 1, 2)).get(), made.get());
  EXPECT_EQ(groups.find(*status, b), made.get());
  EXPECT_THAT(groups.keys(*status), ElementsAre(a, b));
  EXPECT_EQ(groups.keyText(a), "224.0.1.5");
  EXPECT_EQ(groups.keyOf("no address"), std::nullopt);

  const Mox::CollectionInfo& sources = *groups.memberType().collection("source");
  sources.add(*made, 5);
  sources.add(*made, 4);
  EXPECT_THAT(sources.keys(*made), UnorderedElementsAre(4u, 5u));
  sources.remove(*made, 5);
  EXPECT_THAT(sources.keys(*made), ElementsAre(4u));

  groups.remove(*status, a);
  groups.remove(*status, a);
  EXPECT_THAT(groups.keys(*status), ElementsAre(b));
  EXPECT_EQ(groups.size(*status), 1u);
}

}  // namespace
}  // namespace Gmp::Igmp
