#include <Client/SettingWrite.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Settings/SettingError.h>

namespace Agent {
namespace {

using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using testing::ElementsAre;
using testing::StartsWith;

class SettingWriteTest : public testing::Test {
 protected:
  SettingWriteTest() {
    copy_.config = Gmp::Igmp::querierConfigFactory("eth0");
    copy_.status = Gmp::Igmp::querierStatusFactory();
    copy_.status->stateIs(QuerierStatus::querierStateQuerier);
    copy_.intake = Mox::makePtr<IntakeConfig>("eth0");
    copy_.process = Mox::makePtr<IntakeProcessConfig>();
  }

  void add(std::initializer_list<const char*> assignments) {
    for (const char* assignment : assignments) settings_.add(assignment);
  }
  // How it is refused; empty when it is not.
  std::string refusal(std::initializer_list<const char*> assignments) {
    try {
      add(assignments);
      settings_.checkAgainst(copy_);
    } catch (const SettingError& error) {
      return error.what();
    }
    return {};
  }
  std::vector<std::string> written(std::initializer_list<const char*> assignments) {
    add(assignments);
    settings_.write(copy_);
    return settings_.outcome(copy_);
  }

  SettingWrite settings_;
  AttrLogCopy::Interface copy_;
};

TEST_F(SettingWriteTest, takesAttributesByTheirNameAndAsTheirOptionIsSpelt) {
  written({"robustness=3", "query-interval=60.5", "--startup-query-count=4", "sendQuery=off",
           "querierVersion=3"});
  EXPECT_EQ(copy_.config->robustness(), 3u);
  EXPECT_EQ(copy_.config->queryInterval(), 60.5);
  EXPECT_EQ(copy_.config->startupQueryCount(), 4u);
  EXPECT_FALSE(copy_.config->sendQuery());
  EXPECT_EQ(copy_.config->querierVersion(), Gmp::Igmp::igmpVersion3);
}

struct Refusal {
  const char* name;
  const char* assignment;
  const char* text;
};

class SettingRefusalTest : public SettingWriteTest, public testing::WithParamInterface<Refusal> {};

TEST_P(SettingRefusalTest, namesTheAttributeTheValueAndWhatItMustBe) {
  EXPECT_THAT(refusal({GetParam().assignment}), StartsWith(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    EachKind, SettingRefusalTest,
    testing::Values(
        Refusal{"tooSmall", "queryInterval=0",
                "queryInterval 0: must be from 1 to 31744 (RFC 3376 8.2)"},
        Refusal{"tooLarge", "robustness=8", "robustness 8: must be from 1 to 7 (RFC 3376 8.1)"},
        Refusal{"asItWasSpelt", "query-interval=x", "query-interval x: not a number; must be"},
        Refusal{"notWhole", "startupQueryCount=1.5", "startupQueryCount 1.5: not a whole number"},
        Refusal{"notAFlag", "sendQuery=1", "sendQuery 1: must be on or off"},
        Refusal{"empty", "robustness=", "robustness : not a whole number"},
        Refusal{"unknown", "speed=1", "speed: there is no such setting; there are: robustness, "},
        Refusal{"theKey", "name=eth1", "name: there is no such setting"},
        Refusal{"derived", "lastMemberQueryTime=1", "lastMemberQueryTime: there is no such"},
        Refusal{"noValue", "robustness", "robustness: must be ATTRIBUTE=VALUE, such as"},
        Refusal{"notWithWhatIsThere", "queryInterval=10",
                "queryInterval 10: must be more than the query response interval, 10 seconds"},
        Refusal{"theOtherWay", "queryResponseInterval=125",
                "queryResponseInterval 125: must be less than the query interval, 125 seconds"},
        Refusal{"aLimitOfZero", "max-groups=0",
                "max-groups 0: must be a whole number from 1 to 16777216"},
        Refusal{"noPrefix", "permittedQueriers=here",
                "permittedQueriers here: 'here' is no IPv4 prefix such as 10.0.0.0/8"},
        Refusal{"neitherOnNorOff", "immediateLeave=0", "immediateLeave 0: must be on or off"},
        Refusal{"notInThatVersion", "lastMemberQueryInterval=26",
                "lastMemberQueryInterval 26: must be from 0.1 to 25.5 in version 2"}),
    [](const auto& refused) { return std::string(refused.param.name); });

TEST_F(SettingWriteTest, refusesTheSameAttributeTwice) {
  EXPECT_EQ(refusal({"queryInterval=60", "query-interval=70"}), "query-interval: is given twice");
}

TEST_F(SettingWriteTest, refusesASecondValueOfWhatImmediateLeaveSets) {
  EXPECT_EQ(refusal({"lastMemberQueryCount=3", "immediate-leave=on"}),
            "immediate-leave: gives lastMemberQueryCount a second value");
}

TEST_F(SettingWriteTest, setsTheIntakeOfTheInterfaceAndTheLimitsOfTheProcess) {
  EXPECT_THAT(
      written({"max-groups=1000", "permittedQueriers=10.0.0.1", "ttlOne=off",
               "max-process-sources=5", "listen-only=on", "immediateLeave=on"}),
      ElementsAre("maxGroups 1000: set", "permittedQueriers 10.0.0.1: set", "ttlOne off: set",
                  "maxProcessSources 5: set", "listenOnly on: set", "immediateLeave on: set"));
  EXPECT_EQ(copy_.intake->maxGroups(), 1000u);
  EXPECT_EQ(copy_.intake->permittedQueriers(), PrefixList("10.0.0.1/32"));
  EXPECT_FALSE(copy_.intake->ttlOne());
  EXPECT_EQ(copy_.process->maxProcessSources(), 5u);
  EXPECT_TRUE(copy_.intake->listenOnly());
  EXPECT_EQ(copy_.config->lastMemberQueryCount(), 0u);
}

TEST_F(SettingWriteTest, immediateLeaveOffIsTheDefaultCountOfQueries) {
  copy_.config->lastMemberQueryCountIs(0);
  written({"immediateLeave=off"});
  EXPECT_EQ(copy_.config->lastMemberQueryCount(), 2u);
}

TEST_F(SettingWriteTest, refusesSettingsOfAnIntakeToAnAgentThatHasNone) {
  copy_.intake = nullptr;
  EXPECT_EQ(refusal({"maxGroups=7"}), "maxGroups 7: this agent has no such setting");
}

TEST_F(SettingWriteTest, judgesValuesThatAreGivenTogetherTogether) {
  EXPECT_EQ(refusal({"queryInterval=5", "queryResponseInterval=2"}), "");
  EXPECT_EQ(refusal({"lastMemberQueryInterval=100", "querierVersion=3"}), "");
}

TEST_F(SettingWriteTest, reportsValuesInEffectAndValuesThatNoStatusShows) {
  copy_.status->robustnessIs(3);
  copy_.status->startupQueryIntervalIs(31.25);
  EXPECT_THAT(written({"robustness=3", "lastMemberQueryCount=1", "startupQueryInterval=0"}),
              ElementsAre("robustness 3: in effect", "lastMemberQueryCount 1: set",
                          "startupQueryInterval 0 s: in effect: 31.25 s, a quarter of the query "
                          "interval"));
}

TEST_F(SettingWriteTest, reportsThatAQuarterOfAnOlderQueryIntervalStaysInEffect) {
  add({"startupQueryInterval=0"});
  copy_.config->queryIntervalIs(60.0);
  copy_.status->startupQueryIntervalIs(31.25);
  EXPECT_THAT(settings_.outcome(copy_),
              ElementsAre("startupQueryInterval 0 s: set; 31.25 s is in effect until the querier "
                          "starts again"));
  copy_.status->stateIs(QuerierStatus::querierStateInitial);
  EXPECT_THAT(settings_.outcome(copy_),
              ElementsAre("startupQueryInterval 0 s: set; not in effect while no querier runs on "
                          "the interface"));
}

TEST_F(SettingWriteTest, reportsWhyAValueIsNotInEffect) {
  EXPECT_THAT(
      written({"queryInterval=60"}),
      ElementsAre("queryInterval 60 s: set; not in effect while no querier runs on the interface"));
  copy_.status->stateIs(QuerierStatus::querierStateNonQuerier);
  copy_.status->electedQuerierAddrIs(IpAddr(10, 0, 0, 1));
  copy_.status->otherQuerierExpiryTimeIs(2000.0);
  EXPECT_THAT(settings_.outcome(copy_),
              ElementsAre("queryInterval 60 s: set; not in effect while 10.0.0.1 is querier"));
  copy_.status->otherQuerierExpiryTimeIs(Mox::never);
  EXPECT_THAT(settings_.outcome(copy_),
              ElementsAre("queryInterval 60 s: set; not in effect while sendQuery is off"));
}

TEST_F(SettingWriteTest, reportsThatAnotherWriterChangedItAgain) {
  add({"robustness=3"});
  settings_.write(copy_);
  copy_.config->robustnessIs(5);
  EXPECT_THAT(settings_.outcome(copy_), ElementsAre("robustness 3: set, and changed again since"));
}

}  // namespace
}  // namespace Agent
