// /metrics of an agent that is served in the same process.
#include <algorithm>
#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Intake/IntakeConfig.h>
#include <Intake/IntakeProcess.h>
#include <Intake/IntakeStatus.h>
#include <Mox/TypeInfo.h>
#include <Report/InterfaceState.h>
#include <Report/LoopState.h>
#include <Web/WebRoutes.h>

#include <AgentTestSupport/ServedAgent.h>
#include <AgentTestSupport/TestAddresses.h>

namespace Agent {
namespace {

using Gmp::Igmp::QuerierStatus;
using Mox::NboAttrLog::Access;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

class MetricsTest : public testing::Test {
 protected:
  void begin() {
    agent_.start();
    agent_.directory().entryIs("interface/eth0", interface_, Access::readOnly);
    agent_.directory().entryIs("intakeConfig/eth0", intake_, Access::readOnly);
    agent_.directory().entryIs("intakeStatus/eth0", intakeStatus_, Access::readOnly);
    agent_.directory().entryIs("intakeProcessConfig", process_, Access::readOnly);
    agent_.directory().entryIs("intakeProcessStatus", processStatus_, Access::readOnly);
    agent_.directory().entryIs("loop", loop_, Access::readOnly);
    interface_->runningIs(true);
    state_.emplace(agent_.loop(), agent_.path());
    state_->start();
    agent_.advance(1.0);
    ASSERT_TRUE(state_->agent().isCurrent());
  }
  WebAnswer answered(std::string_view target = "/metrics") {
    agent_.advance(1.0);
    return WebRoutes(*state_).answer({.target = target});
  }
  std::string text(std::string_view target = "/metrics") {
    const WebAnswer answer = answered(target);
    EXPECT_EQ(answer.status, 200u);
    std::string text;
    while (answer.body->append(text) != WebBody::Progress::done) {
    }
    return text;
  }
  // The lines that begin so.
  std::vector<std::string> samples(const std::string& begin, std::string_view target = "/metrics") {
    std::vector<std::string> found;
    for (std::string& line : linesOf(text(target))) {
      if (line.starts_with(begin)) found.push_back(std::move(line));
    }
    return found;
  }
  Mox::Ptr<Gmp::Igmp::QuerierGroupStatus> groupOf(unsigned number) {
    return agent_.status()->groupIs(Ilvo::IpAddr((239u << 24) + number));
  }
  // Each counter gets a value of its own, which is returned with its name.
  static void count(Mox::EntityBase& entity, std::map<std::string, unsigned>& counted) {
    for (const Mox::AttrInfo& attr : entity.type().attrs) {
      if (attr.kind != Mox::AttrKind::counter) continue;
      const unsigned value = 5000 + static_cast<unsigned>(counted.size());
      attr.set(entity, Mox::Value(Mox::U64{value}));
      counted[attr.name] = value;
    }
  }

  ServedAgent agent_;
  const Mox::Ptr<InterfaceState> interface_ = Mox::makePtr<InterfaceState>(Mox::Name("eth0"));
  const Mox::Ptr<IntakeConfig> intake_ = Mox::makePtr<IntakeConfig>(Mox::Name("eth0"));
  const Mox::Ptr<IntakeStatus> intakeStatus_ = Mox::makePtr<IntakeStatus>(Mox::Name("eth0"));
  const Mox::Ptr<IntakeProcessConfig> process_ = Mox::makePtr<IntakeProcessConfig>();
  const Mox::Ptr<IntakeProcessStatus> processStatus_ = Mox::makePtr<IntakeProcessStatus>();
  const Mox::Ptr<LoopState> loop_ = Mox::makePtr<LoopState>();
  std::optional<WebState> state_;
};

TEST_F(MetricsTest, haveTheTypeOfTheTextFormat) {
  begin();
  EXPECT_EQ(answered().type, "text/plain; version=0.0.4; charset=utf-8");
}

// A counter that is added to an entity is to be seen from afar, too.
TEST_F(MetricsTest, haveEachCounterOfAnInterfaceOnce) {
  begin();
  std::map<std::string, unsigned> counted;
  count(*agent_.status(), counted);
  count(*interface_, counted);
  count(*intakeStatus_, counted);
  EXPECT_GT(counted.size(), 40u);
  const std::vector<std::string> lines = linesOf(text());
  for (const auto& [name, value] : counted) {
    const std::string end = " " + std::to_string(value);
    EXPECT_EQ(std::ranges::count_if(lines, [&](const auto& line) { return line.ends_with(end); }),
              1)
        << name;
  }
}

TEST_F(MetricsTest, nameTheQuerierAndItsState) {
  begin();
  interface_->addressIs(Ilvo::IpAddr(10, 0, 0, 2));
  agent_.status()->stateIs(QuerierStatus::querierStateNonQuerier);
  agent_.status()->electedQuerierAddrIs(Ilvo::IpAddr(10, 0, 0, 1));
  agent_.status()->querierVersionIs(Gmp::Igmp::igmpVersion2);
  agent_.status()->otherQuerierExpiryTimeIs(Mox::now() + 256.0);
  EXPECT_THAT(
      samples("igmp_querier_info"),
      ElementsAre(R"(igmp_querier_info{interface="eth0",address="10.0.0.2",querier="10.0.0.1",)"
                  R"(version="2"} 1)"));
  EXPECT_THAT(samples("igmp_querier_state"),
              ElementsAre(R"(igmp_querier_state{interface="eth0",state="initial"} 0)",
                          R"(igmp_querier_state{interface="eth0",state="querier"} 0)",
                          R"(igmp_querier_state{interface="eth0",state="nonQuerier"} 1)",
                          R"(igmp_querier_state{interface="eth0",state="stopped"} 0)"));
  EXPECT_THAT(samples("igmp_other_querier_expiry_seconds"),
              ElementsAre(R"(igmp_other_querier_expiry_seconds{interface="eth0"} 253)"));
}

TEST_F(MetricsTest, aQuerierThatDoesNotRunIsStopped) {
  begin();
  interface_->runningIs(false);
  agent_.status()->otherQuerierExpiryTimeIs(Mox::now() + 256.0);
  EXPECT_THAT(samples(R"(igmp_querier_state{interface="eth0",state="stopped"})"),
              ElementsAre(HasSubstr("} 1")));
  EXPECT_THAT(samples("igmp_other_querier_expiry_seconds"), IsEmpty());
}

TEST_F(MetricsTest, countGroupsByVersionAndTheirSources) {
  begin();
  for (unsigned i = 0; i < 5; ++i) {
    groupOf(i)->compatibilityModeIs(i < 2 ? Gmp::Igmp::igmpVersion1 : Gmp::Igmp::igmpVersion3);
    groupOf(i)->sourceIs(Ilvo::IpAddr(10, 0, 0, 1));
  }
  groupOf(0)->sourceIs(Ilvo::IpAddr(10, 0, 0, 2));
  EXPECT_THAT(samples("igmp_groups{"),
              ElementsAre(R"(igmp_groups{interface="eth0",compatibility="1"} 2)",
                          R"(igmp_groups{interface="eth0",compatibility="2"} 0)",
                          R"(igmp_groups{interface="eth0",compatibility="3"} 3)"));
  EXPECT_THAT(samples("igmp_sources{"), ElementsAre(R"(igmp_sources{interface="eth0"} 6)"));
}

TEST_F(MetricsTest, limitsStandBesideWhatWasReached) {
  begin();
  intake_->maxGroupsIs(70);
  intakeStatus_->groupsMostIs(69);
  process_->maxProcessSourcesIs(900);
  processStatus_->sourcesMostIs(33);
  EXPECT_THAT(samples(R"(igmp_limit{interface="eth0",resource="groups"})"),
              ElementsAre(HasSubstr("} 70")));
  EXPECT_THAT(samples(R"(igmp_high_water{interface="eth0",resource="groups"})"),
              ElementsAre(HasSubstr("} 69")));
  EXPECT_THAT(samples(R"(igmp_process_limit{resource="sources"})"),
              ElementsAre(HasSubstr("} 900")));
  EXPECT_THAT(samples(R"(igmp_process_high_water{resource="sources"})"),
              ElementsAre(HasSubstr("} 33")));
}

TEST_F(MetricsTest, haveTheDelaysOfTheLoop) {
  begin();
  DelayCounts gaps;
  gaps.add(0.0015);
  loop_->gapsIs(gaps);
  loop_->queryDelaysIs(gaps);
  loop_->longestGapIs(0.5);
  EXPECT_THAT(samples("igmp_loop_gap_seconds_count"), ElementsAre("igmp_loop_gap_seconds_count 1"));
  EXPECT_THAT(samples("igmp_query_lateness_seconds_sum"),
              ElementsAre("igmp_query_lateness_seconds_sum 0.0015"));
  EXPECT_THAT(samples("igmp_loop_longest_gap_seconds"),
              ElementsAre("igmp_loop_longest_gap_seconds 0.5"));
}

TEST_F(MetricsTest, haveThoseOfTheProcess) {
  begin();
  EXPECT_THAT(samples("igmp_build_info"), ElementsAre(HasSubstr(R"({version=")")));
  for (const char* name :
       {"process_cpu_seconds_total", "process_virtual_memory_bytes",
        "process_resident_memory_bytes", "process_open_fds", "process_max_fds"}) {
    const std::vector<std::string> found = samples(std::string(name) + " ");
    ASSERT_THAT(found, SizeIs(1)) << name;
    EXPECT_GT(std::stod(found[0].substr(found[0].find(' '))), 0.0) << name;
  }
  const std::string start = samples("process_start_time_seconds ").at(0);
  const double seconds = std::stod(start.substr(start.find(' ')));
  EXPECT_LE(seconds, static_cast<double>(std::time(nullptr)) + 1.0);
  EXPECT_GT(seconds, 1.7e9);
}

// Nobody can see from a value that nobody updates it.
TEST_F(MetricsTest, areOfAnAgentThatRunsOnly) {
  begin();
  groupOf(1);
  EXPECT_THAT(samples("igmp_up"), ElementsAre("igmp_up 1"));
  const WebAnswer answer = answered();
  std::string begun;
  answer.body->append(begun);
  agent_.stop();
  agent_.advance(3.0);
  EXPECT_THAT(samples("igmp_"), ElementsAre("igmp_up 0", StartsWith("igmp_build_info")));
  EXPECT_THAT(samples("process_"), Not(IsEmpty()));
  EXPECT_EQ(answer.body->append(begun), WebBody::Progress::done);
  agent_.start();
  agent_.advance(3.0);
  EXPECT_THAT(samples("igmp_up"), ElementsAre("igmp_up 1"));
  EXPECT_THAT(samples("igmp_querier_info"), SizeIs(1));
}

TEST_F(MetricsTest, ofManyInterfacesAreMadeInParts) {
  begin();
  for (unsigned i = 1; i < 300; ++i) {
    const std::string name = "vlan" + std::to_string(i);
    agent_.directory().entryIs("config/" + name, Gmp::Igmp::querierConfigFactory(name),
                               Access::readOnly);
    agent_.directory().entryIs("status/" + name, Gmp::Igmp::querierStatusFactory(),
                               Access::readOnly);
  }
  const WebAnswer answer = answered();
  std::string whole;
  WebBody::Progress progress = WebBody::Progress::more;
  while (progress != WebBody::Progress::done) {
    const size_t before = whole.size();
    progress = answer.body->append(whole);
    EXPECT_LT(whole.size() - before, size_t{64} * 1024);
  }
  EXPECT_GT(whole.size(), size_t{300} * 1024);
  // The samples of a family stand together, behind its only help and type.
  std::set<std::string> families;
  std::string family;
  for (const std::string& line : linesOf(whole)) {
    if (line.starts_with("# HELP ")) {
      family = line.substr(7, line.find(' ', 7) - 7);
      EXPECT_TRUE(families.insert(family).second) << family;
    } else if (line.starts_with("# TYPE ")) {
      EXPECT_THAT(line, StartsWith("# TYPE " + family + " "));
    } else {
      EXPECT_THAT(line, StartsWith(family));
    }
  }
  EXPECT_THAT(samples("igmp_querier_info"), SizeIs(300));
}

TEST_F(MetricsTest, letOthersComeBetweenTheStepsOfCounting) {
  begin();
  constexpr unsigned groups = 12'000;
  for (unsigned i = 0; i < groups; ++i) groupOf(i)->compatibilityModeIs(Gmp::Igmp::igmpVersion2);
  const WebAnswer answer = answered();
  std::string text;
  int waits = 0;
  int woken = 0;
  for (auto progress = WebBody::Progress::more; progress != WebBody::Progress::done;) {
    progress = answer.body->append(text);
    if (progress != WebBody::Progress::waits) continue;
    ++waits;
    answer.body->wakeIs([&] { ++woken; });
  }
  EXPECT_EQ(waits, 2);
  EXPECT_EQ(woken, waits);
  EXPECT_THAT(text, HasSubstr(R"(igmp_groups{interface="eth0",compatibility="2"} 12000)"));
}

TEST_F(MetricsTest, haveNoSeriesOfGroupsUnlessAskedFor) {
  begin();
  groupOf(1);
  EXPECT_THAT(samples("igmp_group_info"), IsEmpty());
  EXPECT_THAT(samples("igmp_groups_without_series"), IsEmpty());
}

TEST_F(MetricsTest, haveSeriesOfGroupsToThatNumber) {
  begin();
  for (unsigned i = 0; i < 700; ++i) {
    groupOf(i)->expiryTimeIs(i == 0 ? 0.0 : Mox::now() + 101.0);
    groupOf(i)->lastReporterIs(host);
  }
  groupOf(0)->compatibilityModeIs(Gmp::Igmp::igmpVersion3);
  groupOf(0)->filterModeIs(Gmp::Igmp::filterModeInclude);
  groupOf(0)->sourceIs(Ilvo::IpAddr(10, 0, 0, 1));
  const char* two = "/metrics?groups=2";
  EXPECT_EQ(samples("igmp_group_info", two).at(0),
            R"(igmp_group_info{interface="eth0",group="239.0.0.0",filter_mode="include",)"
            R"(compatibility="3",last_reporter="10.0.0.11"} 1)");
  EXPECT_THAT(samples("igmp_group_sources", two),
              ElementsAre(R"(igmp_group_sources{interface="eth0",group="239.0.0.0"} 1)",
                          R"(igmp_group_sources{interface="eth0",group="239.0.0.1"} 0)"));
  EXPECT_THAT(
      samples("igmp_group_expiry_seconds", two),
      ElementsAre(StartsWith(R"(igmp_group_expiry_seconds{interface="eth0",group="239.0.0.1"} )")));
  EXPECT_THAT(samples("igmp_groups_without_series", two),
              ElementsAre("igmp_groups_without_series 698"));
  EXPECT_THAT(samples("igmp_group_sources", "/metrics?groups=500"), SizeIs(500));
  EXPECT_THAT(samples("igmp_group_sources", "/metrics?groups=10000"), SizeIs(700));
  EXPECT_THAT(samples("igmp_groups_without_series", "/metrics?groups=700"),
              ElementsAre("igmp_groups_without_series 0"));
}

// Prometheus would refuse the whole answer.
TEST_F(MetricsTest, namesThatAreNoTextAreWrittenAsText) {
  begin();
  const std::string name = "a\xff\"b";
  agent_.directory().entryIs("config/" + name, Gmp::Igmp::querierConfigFactory(name),
                             Access::readOnly);
  agent_.directory().entryIs("status/" + name, Gmp::Igmp::querierStatusFactory(), Access::readOnly);
  EXPECT_THAT(samples("igmp_sources"), ElementsAre(R"(igmp_sources{interface="a\\xff\"b"} 0)",
                                                   R"(igmp_sources{interface="eth0"} 0)"));
}

}  // namespace
}  // namespace Agent
