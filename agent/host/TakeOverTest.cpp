#include "TakeOver.h"

#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Mox/ActivityClock.h>

#include <AgentTestSupport/TestAddresses.h>
#include <AgentTestSupport/TestLink.h>

namespace Agent {
namespace {

using Gmp::Igmp::filterModeExclude;
using Gmp::Igmp::filterModeInclude;
using Gmp::Igmp::IgmpFilterMode;
using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierSourceStatus;
using Gmp::Igmp::QuerierStatus;
using Mox::Ptr;
using Mox::Seconds;
using testing::ElementsAre;

constexpr Seconds lostAt = 900.0;
constexpr Seconds nowAt = 1000.0;
constexpr Seconds grace = 30.0;
constexpr Seconds interval = 260.0;  // of a membership, by the defaults of a status

struct Source {
  Seconds creationTime = 800.0;
  Seconds expiryTime = 1200.0;
  bool expired = false;
};
struct PassedCase {
  const char* name;
  IgmpFilterMode mode;
  Seconds creationTime;
  Seconds expiryTime;
  std::vector<Source> sources;
  bool stays;
  std::vector<bool> expired;  // of the sources that stay, in the order of addresses
  Seconds now = nowAt;
  std::optional<IgmpFilterMode> modeAfter = {};  // none for the same
};

class LeavePassedTest : public testing::TestWithParam<PassedCase> {};

TEST_P(LeavePassedTest, keepsWhatHostsStillWant) {
  const PassedCase& param = GetParam();
  const Ptr<QuerierStatus> status = Gmp::Igmp::querierStatusFactory();
  const Ptr<QuerierGroupStatus> kept = status->groupIs(group);
  kept->filterModeIs(param.mode);
  kept->creationTimeIs(param.creationTime);
  kept->expiryTimeIs(param.expiryTime);
  Mox::U32 address = 0x0a000001;
  for (const Source& each : param.sources) {
    const Ptr<QuerierSourceStatus> source = kept->sourceIs(Ilvo::IpAddr(address++));
    source->creationTimeIs(each.creationTime);
    source->expiryTimeIs(each.expiryTime);
    source->expiredIs(each.expired);
  }
  leavePassed(*status, {.lost = lostAt, .now = param.now, .grace = grace});
  EXPECT_EQ(status->group(group) != nullptr, param.stays);
  if (!param.stays) return;
  EXPECT_EQ(kept->filterMode(), param.modeAfter.value_or(param.mode));
  std::vector<bool> expired;
  for (Mox::U32 at = 0x0a000001; at < address; ++at) {
    if (const auto source = kept->source(Ilvo::IpAddr(at))) expired.push_back(source->expired());
  }
  EXPECT_EQ(expired, param.expired);
}

INSTANTIATE_TEST_SUITE_P(
    States, LeavePassedTest,
    testing::Values(
        PassedCase{"groupWithTimeLeft", filterModeExclude, 800.0, 1000.5, {}, true, {}},
        PassedCase{"groupWhoseTimeHasPassed", filterModeExclude, 800.0, 1000.0, {}, false, {}},
        PassedCase{"groupWithoutAttributes", filterModeInclude, 0.0, 0.0, {}, false, {}},
        PassedCase{"groupReceivedInPart", filterModeExclude, 800.0, 0.0, {}, false, {}},
        // Its timer was lowered by a query for the group, and has passed.
        PassedCase{"includeWithATime", filterModeInclude, 800.0, 990.0, {{}}, true, {false}},
        PassedCase{"excludeThatHasPassedButForASource",
                   filterModeExclude,
                   800.0,
                   990.0,
                   {{.expiryTime = 960.0}, {}},
                   true,
                   {true, false},
                   nowAt,
                   filterModeInclude},
        PassedCase{"wantedSource", filterModeInclude, 800.0, Mox::never, {{}}, true, {false}},
        PassedCase{"includeWithoutSources", filterModeInclude, 800.0, Mox::never, {}, false, {}},
        PassedCase{"includeWhoseSourcesHavePassed",
                   filterModeInclude,
                   800.0,
                   Mox::never,
                   {{.expiryTime = 960.0}, {.expiryTime = 970.0}},
                   false,
                   {}},
        PassedCase{"sourceWhoseTimeMayNotHaveBeenPublished",
                   filterModeInclude,
                   800.0,
                   Mox::never,
                   {{.expiryTime = 970.5}},
                   true,
                   {false}},
        PassedCase{"oneSourceOfTwo",
                   filterModeInclude,
                   800.0,
                   Mox::never,
                   {{.expiryTime = 960.0}, {}},
                   true,
                   {true, false}},
        PassedCase{"sourceThatIsExcludedFromNowOn",
                   filterModeExclude,
                   800.0,
                   1100.0,
                   {{.expiryTime = 960.0}, {}, {.expiryTime = Mox::never, .expired = true}},
                   true,
                   {true, false, true}},
        PassedCase{"sourceWithoutAttributes",
                   filterModeExclude,
                   800.0,
                   1100.0,
                   {{.creationTime = 0.0, .expiryTime = 0.0}},
                   true,
                   {}},
        PassedCase{"sourceWhoseTimeWasNeverPublished",
                   filterModeInclude,
                   800.0,
                   Mox::never,
                   {{.expiryTime = 0.0}},
                   true,
                   {false},
                   lostAt + interval + grace - 0.5},
        PassedCase{"sourceThatMustHavePassed",
                   filterModeInclude,
                   800.0,
                   Mox::never,
                   {{.expiryTime = 0.0}},
                   false,
                   {},
                   lostAt + interval + grace}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(LeavePassed, looksAtEachGroup) {
  const Ptr<QuerierStatus> status = Gmp::Igmp::querierStatusFactory();
  for (Mox::U32 number = 0; number < 100; ++number) {
    const Ptr<QuerierGroupStatus> kept = status->groupIs(Ilvo::IpAddr(0xe8000000u + number));
    kept->filterModeIs(filterModeExclude);
    kept->creationTimeIs(800.0);
    kept->expiryTimeIs(number % 3 == 0 ? 1100.0 : 990.0);
  }
  leavePassed(*status, {.lost = lostAt, .now = nowAt, .grace = grace});
  EXPECT_EQ(status->group().size(), 34u);
  for (auto at = status->group().begin(); at != status->group().end(); ++at) {
    EXPECT_EQ(at.key().value() % 3, 0xe8000000u % 3);
  }
}

class WhyAnotherTest : public testing::Test {
 protected:
  WhyAnotherTest() {
    kept_->indexIs(link_.index);
    kept_->macIs("02:00:00:00:00:02");
  }
  const Link link_ = runningLink(Ilvo::IpAddr(10, 0, 0, 2), {0x02, 0, 0, 0, 0, 2});
  const Ptr<InterfaceState> kept_ = Mox::makePtr<InterfaceState>(Mox::Name("eth0"));
};

TEST_F(WhyAnotherTest, theSameIndexAndMacAreTheSameInterface) {
  EXPECT_EQ(whyAnother(*kept_, &link_), "");
}

TEST_F(WhyAnotherTest, anotherIndexIsAnotherInterface) {
  kept_->indexIs(link_.index + 1);
  EXPECT_EQ(whyAnother(*kept_, &link_), "the interface is another one: its index is " +
                                            std::to_string(link_.index) + ", not " +
                                            std::to_string(link_.index + 1));
}

TEST_F(WhyAnotherTest, anInterfaceThatWasNotThereIsAnother) {
  kept_->indexIs(0);
  kept_->macIs("");
  EXPECT_EQ(whyAnother(*kept_, &link_), "that agent had no such interface");
}

TEST_F(WhyAnotherTest, anotherMacIsAnotherInterface) {
  kept_->macIs("02:00:00:00:00:03");
  EXPECT_EQ(whyAnother(*kept_, &link_),
            "the interface is another one: its MAC address is 02:00:00:00:00:02, not "
            "02:00:00:00:00:03");
}

TEST_F(WhyAnotherTest, anInterfaceThatIsGoneIsNone) {
  EXPECT_EQ(whyAnother(*kept_, nullptr), "there is no such interface now");
}

class ReturnSettingsTest : public testing::Test {
 protected:
  static Ptr<Gmp::Igmp::QuerierConfig> config() {
    auto made = Gmp::Igmp::querierConfigFactory("eth0");
    made->queryIntervalIs(60.0);
    return made;
  }
  std::string returned() {
    return returnSettings(*kept_, *keptConfigured_, *configured_, *present_);
  }

  const Ptr<Gmp::Igmp::QuerierConfig> kept_ = config();
  const Ptr<Gmp::Igmp::QuerierConfig> keptConfigured_ = config();
  const Ptr<Gmp::Igmp::QuerierConfig> configured_ = config();
  const Ptr<Gmp::Igmp::QuerierConfig> present_ = config();
};

TEST_F(ReturnSettingsTest, aValueSetAtRunTimeReturns) {
  kept_->queryIntervalIs(90.0);
  EXPECT_EQ(returned(), "");
  EXPECT_EQ(present_->queryInterval(), 90.0);
}

TEST_F(ReturnSettingsTest, aValueThatTheConfigurationChangesIsTheConfigurations) {
  kept_->queryIntervalIs(90.0);
  configured_->queryIntervalIs(30.0);
  present_->queryIntervalIs(30.0);
  EXPECT_EQ(returned(), "");
  EXPECT_EQ(present_->queryInterval(), 30.0);
}

TEST_F(ReturnSettingsTest, aValueThatWasNotSetAtRunTimeIsTheConfigurations) {
  configured_->queryIntervalIs(30.0);
  present_->queryIntervalIs(30.0);
  kept_->robustnessIs(3);
  EXPECT_EQ(returned(), "");
  EXPECT_EQ(present_->queryInterval(), 30.0);
  EXPECT_EQ(present_->robustness(), 3u);
}

// The new configuration alone may be right, and what was set at run time contradict it.
TEST_F(ReturnSettingsTest, valuesThatContradictTheConfigurationDoNotReturn) {
  kept_->queryResponseIntervalIs(50.0);
  kept_->robustnessIs(3);
  configured_->queryIntervalIs(30.0);
  present_->queryIntervalIs(30.0);
  EXPECT_THAT(returned(), testing::HasSubstr("must be less than the query interval, 30 seconds"));
  EXPECT_EQ(present_->queryResponseInterval(), 10.0);
  EXPECT_EQ(present_->robustness(), 2u);
}

}  // namespace
}  // namespace Agent
