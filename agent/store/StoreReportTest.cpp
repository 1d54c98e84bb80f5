#include <Store/StoreReport.h>

#include <gtest/gtest.h>

#include <AgentTestSupport/TestAddresses.h>

namespace Agent {
namespace {

class StoreReportTest : public testing::Test {
 protected:
  StoreReportTest() {
    state_->formatVersionIs(1);
    state_->bootIdIs("2c5f3d4e-8a6b-4f0e-9d1c-7b8a9e0f1a2b");
    state_->completeIs(true);
    state_->groupsIs(1);
    AttrLogCopy::Interface& eth0 = interfaces_["eth0"];
    eth0.config = Gmp::Igmp::querierConfigFactory("eth0");
    eth0.status = Gmp::Igmp::querierStatusFactory();
    eth0.status->stateIs(Gmp::Igmp::QuerierStatus::querierStateQuerier);
    eth0.status->groupIs(group);
    eth0.state = Mox::makePtr<InterfaceState>("eth0");
    eth0.state->indexIs(7);
    eth0.state->macIs("02:00:00:00:00:01");
  }
  void lost() {
    state_->lostTimeIs(1000.0);
    state_->lostWallClockIs(86400.0);
  }
  std::string text() const { return storeText(*state_, interfaces_, 1250.0); }

  const Mox::Ptr<StoreState> state_ = Mox::makePtr<StoreState>();
  AttrLogCopy::Interfaces interfaces_;
};

TEST_F(StoreReportTest, whileTheAgentRuns) {
  EXPECT_EQ(text(),
            "COPY      AGENT LOST  AT  GROUPS\n"
            "complete  -           -   1\n"
            "\n"
            "INTERFACE  ROLE     GROUPS  SET AT RUN TIME\n"
            "eth0       querier  1       -\n");
}

TEST_F(StoreReportTest, afterTheAgentHasEnded) {
  lost();
  EXPECT_EQ(text(),
            "COPY      AGENT LOST  AT                           GROUPS\n"
            "complete  4m10s       1970-01-02T00:00:00.000000Z  1\n"
            "\n"
            "INTERFACE  ROLE     GROUPS  SET AT RUN TIME\n"
            "eth0       querier  1       -\n");
}

TEST_F(StoreReportTest, withoutInterfacesThereIsNoSecondTable) {
  interfaces_.clear();
  state_->completeIs(false);
  state_->groupsIs(0);
  EXPECT_EQ(text(),
            "COPY     AGENT LOST  AT  GROUPS\n"
            "partial  -           -   0\n");
}

TEST_F(StoreReportTest, listsTheSettingsThatDifferFromThoseOfTheFiles) {
  AttrLogCopy::Interface& eth0 = interfaces_.at("eth0");
  eth0.configuredConfig = Gmp::Igmp::querierConfigFactory("eth0");
  eth0.config->queryIntervalIs(60.0);
  eth0.intake = Mox::makePtr<IntakeConfig>("eth0");
  eth0.configuredIntakeConfig = Mox::makePtr<IntakeConfig>("eth0");
  eth0.intake->maxGroupsIs(9);
  eth0.process = Mox::makePtr<IntakeProcessConfig>();
  EXPECT_EQ(text(),
            "COPY      AGENT LOST  AT  GROUPS\n"
            "complete  -           -   1\n"
            "\n"
            "INTERFACE  ROLE     GROUPS  SET AT RUN TIME\n"
            "eth0       querier  1       query-interval=60s max-groups=9\n");
}

TEST_F(StoreReportTest, programsGetOneObject) {
  lost();
  EXPECT_EQ(storeJson(*state_, interfaces_, 1250.0),
            "{\"complete\":true,\"agentLostSeconds\":250.0,"
            "\"agentLostUtc\":\"1970-01-02T00:00:00.000000Z\",\"groupCount\":1,"
            "\"formatVersion\":1,\"bootId\":\"2c5f3d4e-8a6b-4f0e-9d1c-7b8a9e0f1a2b\","
            "\"machineId\":null,\"interfaces\":[{\"interface\":\"eth0\",\"index\":7,"
            "\"mac\":\"02:00:00:00:00:01\",\"role\":\"querier\","
            "\"groupCount\":1,\"setAtRunTime\":null}]}\n");
}

}  // namespace
}  // namespace Agent
