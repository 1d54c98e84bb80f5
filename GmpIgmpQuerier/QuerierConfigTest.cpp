#include <GmpIgmpQuerier/QuerierConfig.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "EntityTableChecks.h"

namespace Gmp::Igmp {
namespace {

using Kind = Mox::AttrKind;

class ConfigRecorder final : public QuerierConfig::NotifieeConst {
 public:
  ConfigRecorder(const Ptr<QuerierConfig>& config, std::string& notified)
      : NotifieeConst(config), notified_(notified) {}
  void onRobustness() override { notified_ += "robustness "; }
  void onQueryInterval() override { notified_ += "queryInterval "; }
  void onQueryResponseInterval() override { notified_ += "queryResponseInterval "; }
  void onStartupQueryInterval() override { notified_ += "startupQueryInterval "; }
  void onStartupQueryCount() override { notified_ += "startupQueryCount "; }
  void onLastMemberQueryInterval() override { notified_ += "lastMemberQueryInterval "; }
  void onQuerierVersion() override { notified_ += "querierVersion "; }
  void onLastMemberQueryCount() override { notified_ += "lastMemberQueryCount "; }
  void onAddRandomDelayToTimer() override { notified_ += "addRandomDelayToTimer "; }
  void onSendQuery() override { notified_ += "sendQuery "; }

 private:
  std::string& notified_;
};

TEST(QuerierConfig, beginsWithTheDefaults) {
  const Ptr<QuerierConfig> config = querierConfigFactory("vlan10");
  EXPECT_EQ(config->name(), Mox::Name("vlan10"));
  EXPECT_EQ(config->robustness(), 2u);
  EXPECT_EQ(config->queryInterval(), 125.0);
  EXPECT_EQ(config->queryResponseInterval(), 10.0);
  EXPECT_EQ(config->startupQueryInterval(), 0.0);
  EXPECT_EQ(config->startupQueryCount(), 2u);
  EXPECT_EQ(config->lastMemberQueryInterval(), 1.0);
  EXPECT_EQ(config->querierVersion(), igmpVersion2);
  EXPECT_EQ(config->lastMemberQueryCount(), 2u);
  EXPECT_EQ(config->lastMemberQueryTime(), 2.0);
  EXPECT_FALSE(config->addRandomDelayToTimer());
  EXPECT_TRUE(config->sendQuery());
}

TEST(QuerierConfig, hasTheseAttributes) {
  const std::vector<TableRow> expected{
      {257, "name", Kind::key},
      {258, "robustness", Kind::stored},
      {259, "queryInterval", Kind::stored},
      {260, "queryResponseInterval", Kind::stored},
      {261, "startupQueryInterval", Kind::stored},
      {262, "startupQueryCount", Kind::stored},
      {263, "lastMemberQueryInterval", Kind::stored},
      {264, "querierVersion", Kind::stored},
      {265, "lastMemberQueryCount", Kind::stored},
      {266, "lastMemberQueryTime", Kind::derived},
      {267, "addRandomDelayToTimer", Kind::stored},
      {268, "sendQuery", Kind::stored},
  };
  EXPECT_EQ(tableOf<QuerierConfig>(), expected);
}

TEST(QuerierConfig, settersNotifyTheirOwnSlot) {
  expectSettersToNotifyTheirOwnSlot<ConfigRecorder>(querierConfigFactory("vlan10"));
}

TEST(QuerierConfig, gettersReadWhatTheirSettersWrote) {
  const Ptr<QuerierConfig> config = querierConfigFactory("vlan10");
  config->robustnessIs(3);
  config->queryIntervalIs(60.0);
  config->queryResponseIntervalIs(5.0);
  config->startupQueryIntervalIs(15.0);
  config->startupQueryCountIs(4);
  config->lastMemberQueryIntervalIs(0.5);
  config->querierVersionIs(igmpVersion3);
  config->lastMemberQueryCountIs(5);
  config->addRandomDelayToTimerIs(true);
  config->sendQueryIs(false);
  EXPECT_EQ(config->robustness(), 3u);
  EXPECT_EQ(config->queryInterval(), 60.0);
  EXPECT_EQ(config->queryResponseInterval(), 5.0);
  EXPECT_EQ(config->startupQueryInterval(), 15.0);
  EXPECT_EQ(config->startupQueryCount(), 4u);
  EXPECT_EQ(config->lastMemberQueryInterval(), 0.5);
  EXPECT_EQ(config->querierVersion(), igmpVersion3);
  EXPECT_EQ(config->lastMemberQueryCount(), 5u);
  EXPECT_TRUE(config->addRandomDelayToTimer());
  EXPECT_FALSE(config->sendQuery());
}

TEST(QuerierConfig, lastMemberQueryTimeFollowsWithoutANotificationOfItsOwn) {
  const Ptr<QuerierConfig> config = querierConfigFactory("vlan10");
  IdRecorder ids(*config);
  config->lastMemberQueryCountIs(3);
  EXPECT_EQ(config->lastMemberQueryTime(), 3.0);
  EXPECT_EQ(ids.notified(), "265 ");
  config->lastMemberQueryIntervalIs(0.25);
  EXPECT_EQ(config->lastMemberQueryTime(), 0.75);
  EXPECT_EQ(ids.notified(), "263 ");
}

TEST(QuerierConfig, lastMemberQueryTimeDoesNotWrap) {
  const Ptr<QuerierConfig> config = querierConfigFactory("vlan10");
  config->lastMemberQueryCountIs(0xffffffffu);
  config->lastMemberQueryIntervalIs(2.0);
  EXPECT_EQ(config->lastMemberQueryTime(), 2.0 * 4294967295.0);
}

TEST(QuerierConfig, notifieeMayOverrideNothing) {
  const Ptr<QuerierConfig> config = querierConfigFactory("vlan10");
  QuerierConfig::NotifieeConst notifiee(config);
  config->robustnessIs(3);
  config->sendQueryIs(false);
  EXPECT_EQ(notifiee.notifier(), config);
  EXPECT_EQ(config->robustness(), 3u);
}

TEST(QuerierConfig, isKnownByItsName) {
  const Ptr<QuerierConfig> config = querierConfigFactory("vlan10");
  EXPECT_STREQ(config->typeName(), "Gmp::Igmp::QuerierConfig");
  EXPECT_EQ(config->keyText(), "vlan10");
  EXPECT_EQ(config->fullName(), "vlan10");
}

}  // namespace
}  // namespace Gmp::Igmp
