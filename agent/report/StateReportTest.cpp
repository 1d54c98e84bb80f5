#include <Report/StateReport.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <Text/WallClock.h>

namespace Agent {
namespace {

using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::never;
using Mox::Ptr;

constexpr Mox::Seconds now = 1000.0;

InterfaceView interfaceNamed(const char* name, IpAddr addr) {
  return {name, addr, Gmp::Igmp::querierStatusFactory()};
}

QuerierStatus& statusOf(const InterfaceView& view) {
  return const_cast<QuerierStatus&>(*view.status);
}

void becomeQuerier(const InterfaceView& view) {
  QuerierStatus& status = statusOf(view);
  status.stateIs(QuerierStatus::querierStateQuerier);
  status.querierVersionIs(Gmp::Igmp::igmpVersion2);
  status.electedQuerierAddrIs(view.address);
  status.generalQueryExpiryTimeIs(1012.3);
  status.otherQuerierExpiryTimeIs(never);
  status.v2QueriesSentIs(4294967295u);
}

void joinVersion2(const InterfaceView& view, IpAddr addr) {
  const Ptr<QuerierGroupStatus> group = statusOf(view).groupIs(addr);
  group->compatibilityModeIs(Gmp::Igmp::igmpVersion2);
  group->filterModeIs(Gmp::Igmp::filterModeExclude);
  group->creationTimeIs(996.8);
  group->expiryTimeIs(1250.0);
  group->lastReporterIs(IpAddr(10, 0, 0, 11));
}

// In EXCLUDE: one source that somebody wants, one that nobody does.
void joinVersion3(const InterfaceView& view, IpAddr addr) {
  const Ptr<QuerierGroupStatus> group = statusOf(view).groupIs(addr);
  group->filterModeIs(Gmp::Igmp::filterModeExclude);
  group->creationTimeIs(900.0);
  group->expiryTimeIs(1100.0);
  group->sourceIs(IpAddr(10, 0, 0, 51))->expiredIs(true);
  group->source(IpAddr(10, 0, 0, 51))->creationTimeIs(990.0);
  group->source(IpAddr(10, 0, 0, 51))->expiryTimeIs(never);
  group->sourceIs(IpAddr(10, 0, 0, 50))->expiryTimeIs(1200.0);
  group->source(IpAddr(10, 0, 0, 50))->creationTimeIs(999.0);
}

TEST(StateText, showsInterfacesGroupsSourcesAndCountersInColumns) {
  std::vector views{interfaceNamed("eth0", IpAddr(10, 0, 0, 1)),
                    interfaceNamed("eth1.100", IpAddr(192, 168, 100, 1))};
  becomeQuerier(views[0]);
  views[0].electedTime = 750.0;
  joinVersion2(views[0], IpAddr(239, 1, 1, 1));
  joinVersion3(views[0], IpAddr(232, 1, 1, 1));
  const std::string text = stateText(StatePart::everything, views, now);
  const size_t groups = text.find("\n\n") + 2;
  EXPECT_EQ(text.substr(0, groups),
            "INTERFACE  ADDRESS        ROLE     QUERIER   SINCE  VERSION  ROBUSTNESS  INTERVAL  "
            "RESPONSE  NEXT QUERY  QUERIER LOST  GROUPS\n"
            "eth0       10.0.0.1       querier  10.0.0.1  4m10s  2        2           2m05s     "
            "10s       12s         -             2\n"
            "eth1.100   192.168.100.1  initial  -         -      0        2           2m05s     "
            "10s       -           -             0\n\n");
  EXPECT_EQ(text.substr(groups),
            R"(INTERFACE  GROUP        MODE       VERSION  REPORTER   UP     LEFT
eth0       232.1.1.1    exclude    3        0.0.0.0    1m40s  1m40s
eth0         10.0.0.50  forwarded                      1.0s   3m20s
eth0         10.0.0.51  excluded                       10s    -
eth0       239.1.1.1    exclude    2        10.0.0.11  3.2s   4m10s

COUNTER                   eth0        eth1.100
joins                     0           0
v1QueriesSent             0           0
v2QueriesSent             4294967295  0
v3QueriesSent             0           0
v3GSQueriesSent           0           0
v3GSSQueriesSent          0           0
v1QueriesReceived         0           0
v2QueriesReceived         0           0
v3QueriesReceived         0           0
v1ReportReceived          0           0
v2ReportReceived          0           0
v2LeaveReceived           0           0
v3ReportReceived          0           0
errorPacketReceived       0           0
otherPacketReceived       0           0
mcastBoundaryPktReceived  0           0
)");
}

TEST(StateText, showsCountersOfInterfacesWhereTheyAreKnown) {
  std::vector views{interfaceNamed("eth0", IpAddr(10, 0, 0, 1)),
                    interfaceNamed("eth1", IpAddr(10, 0, 1, 1))};
  const auto state = Mox::makePtr<InterfaceState>(Mox::Name("eth0"));
  state->framesLostIs(7);
  state->sendFailuresIs(5000000000);
  views[0].state = state;
  const std::string text = stateText(StatePart::counters, views, now);
  EXPECT_EQ(text.substr(text.find("framesLost")),
            R"(framesLost                7           -
framesUnparsable          0           -
fragmentsReceived         0           -
otherVlanFrames           0           -
sendFailures              5000000000  -
queriesLost               0           -
deferredLost              0           -
roleChanges               0           -
)");
}

void makeIntake(InterfaceView& view) {
  const auto config = Mox::makePtr<IntakeConfig>(Mox::Name(view.name));
  config->listenOnlyIs(true);
  config->permittedQueriersIs(PrefixList("10.0.0.0/24"));
  const auto status = Mox::makePtr<IntakeStatus>(Mox::Name(view.name));
  status->countedInc(IntakeRule::queryLimit, 7);
  status->groupsMostIs(41);
  view.intake = config;
  view.intakeStatus = status;
}

TEST(StateText, showsCountersAndMarksOfIntakesBehindTheOthers) {
  std::vector views{interfaceNamed("eth0", IpAddr(10, 0, 0, 1)),
                    interfaceNamed("eth1", IpAddr(10, 0, 1, 1))};
  makeIntake(views[0]);
  const std::string text = stateText(StatePart::counters, views, now);
  EXPECT_EQ(text.substr(text.find("queryLimit")),
            R"(queryLimit                7     -
groupsMost                41    -
sourcesMost               0     -
groupSourcesMost          0     -
groupRecordsMost          0     -
queryBurstMost            0     -
)");
}

TEST(StateText, saysWhichQuerierTransmitsNothing) {
  std::vector views{interfaceNamed("eth0", IpAddr(10, 0, 0, 1))};
  becomeQuerier(views[0]);
  makeIntake(views[0]);
  const std::string text = stateText(StatePart::interfaces, views, now);
  EXPECT_NE(text.find("  querier (listen only)  10.0.0.1  "), std::string::npos) << text;
  const auto json = nlohmann::json::parse(stateJson(StatePart::interfaces, views, now))[0];
  EXPECT_EQ(json["role"], "querier");
  EXPECT_EQ(json["listenOnly"], true);
}

TEST(StateText, showsWhenAnInterfaceWasTakenOverAndWithHowManyGroups) {
  std::vector views{interfaceNamed("eth0", IpAddr(10, 0, 0, 1)),
                    interfaceNamed("eth1", IpAddr(10, 0, 1, 1))};
  const auto state = Mox::makePtr<InterfaceState>(Mox::Name("eth0"));
  state->takenOverTimeIs(880.0);
  state->takenOverGroupsIs(20000);
  views[0].state = state;
  const std::string text = stateText(StatePart::interfaces, views, now);
  EXPECT_NE(text.find("GROUPS  TAKEN OVER  WITH GROUPS\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  0       2m00s       20000\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  0       -           -\n"), std::string::npos) << text;
  const auto json = nlohmann::json::parse(stateJson(StatePart::interfaces, views, now));
  EXPECT_EQ(json[0]["takenOverSeconds"], 120.0);
  EXPECT_EQ(json[0]["takenOverGroups"], 20000);
  EXPECT_TRUE(json[1]["takenOverSeconds"].is_null());
}

TEST(StateText, reportsThatThereIsNothing) {
  EXPECT_EQ(stateText(StatePart::everything, {}, now), "no interfaces\n");
  const std::vector views{interfaceNamed("eth0", IpAddr())};
  EXPECT_NE(stateText(StatePart::everything, views, now).find("\nno groups\n"), std::string::npos);
}

TEST(StateText, aQuerierThatDoesNotRunShowsNoTimes) {
  std::vector views{interfaceNamed("eth0", IpAddr(10, 0, 0, 1))};
  becomeQuerier(views[0]);
  joinVersion2(views[0], IpAddr(239, 1, 1, 1));
  views[0].running = false;
  views[0].electedTime = 750.0;
  const std::string text = stateText(StatePart::everything, views, now);
  EXPECT_NE(
      text.find("eth0       10.0.0.1  stopped  10.0.0.1  -      2        2           2m05s     "
                "10s       -           -             1\n"),
      std::string::npos)
      << text;
  EXPECT_NE(text.find("10.0.0.11  3.2s  -\n"), std::string::npos) << text;
}

TEST(StateJson, holdsEverythingInOneLine) {
  wallClockDifferenceIs(1795268601.0);
  std::vector views{interfaceNamed("eth0", IpAddr(10, 0, 0, 1))};
  becomeQuerier(views[0]);
  joinVersion2(views[0], IpAddr(239, 1, 1, 1));
  views[0].electedTime = 750.0;
  EXPECT_EQ(
      stateJson(StatePart::everything, views, now),
      R"({"time":1000.0,"utc":"2026-11-21T14:00:01.000000Z","event":"state","interfaces":[)"
      R"({"interface":"eth0",)"
      R"("address":"10.0.0.1","running":true,"role":"querier","listenOnly":null,)"
      R"("querier":"10.0.0.1",)"
      R"("querierUpSeconds":250.0,"querierVersion":2,"robustness":2,"queryIntervalSeconds":125.0,)"
      R"("queryResponseIntervalSeconds":10.0,"nextQuerySeconds":12.3,)"
      R"("otherQuerierExpirySeconds":null,"groupCount":1,"takenOverSeconds":null,)"
      R"("takenOverGroups":null,"counters":{"joins":0,"v1QueriesSent":0,)"
      R"("v2QueriesSent":4294967295,"v3QueriesSent":0,"v3GSQueriesSent":0,)"
      R"("v3GSSQueriesSent":0,"v1QueriesReceived":0,"v2QueriesReceived":0,)"
      R"("v3QueriesReceived":0,"v1ReportReceived":0,"v2ReportReceived":0,)"
      R"("v2LeaveReceived":0,"v3ReportReceived":0,"errorPacketReceived":0,)"
      R"("otherPacketReceived":0,"mcastBoundaryPktReceived":0},"groups":[)"
      R"({"group":"239.1.1.1","filterMode":"exclude","compatibilityMode":2,)"
      R"("lastReporter":"10.0.0.11","upSeconds":3.2,"timeLeftSeconds":250.0,)"
      R"("sources":[]}]}]})"
      "\n");
  wallClockDifferenceIs({});
}

TEST(StateJson, showsSourcesInAddressOrder) {
  const std::vector views{interfaceNamed("eth0", IpAddr(10, 0, 0, 1))};
  joinVersion3(views[0], IpAddr(232, 1, 1, 1));
  const auto json = nlohmann::ordered_json::parse(stateJson(StatePart::everything, views, now));
  EXPECT_EQ(json["interfaces"][0]["groups"][0]["sources"].dump(),
            R"([{"source":"10.0.0.50","excluded":false,"upSeconds":1.0,"timeLeftSeconds":200.0},)"
            R"({"source":"10.0.0.51","excluded":true,"upSeconds":10.0,"timeLeftSeconds":null}])");
}

TEST(StateJson, unknownValuesAreNull) {
  std::vector views{interfaceNamed("eth0", IpAddr())};
  becomeQuerier(views[0]);
  statusOf(views[0]).electedQuerierAddrIs(IpAddr());
  views[0].running = false;
  const auto json =
      nlohmann::json::parse(stateJson(StatePart::everything, views, now))["interfaces"][0];
  EXPECT_TRUE(json["address"].is_null());
  EXPECT_TRUE(json["querier"].is_null());
  EXPECT_TRUE(json["querierUpSeconds"].is_null());
  EXPECT_TRUE(json["nextQuerySeconds"].is_null());
  EXPECT_EQ(json["running"], false);
}

TEST(StateJson, aTimeThatHasPassedIsNotNegative) {
  const std::vector views{interfaceNamed("eth0", IpAddr(10, 0, 0, 1))};
  becomeQuerier(views[0]);
  const auto json =
      nlohmann::json::parse(stateJson(StatePart::everything, views, 2000.0))["interfaces"][0];
  EXPECT_EQ(json["nextQuerySeconds"], 0.0);
}

// A copy of an agent that publishes neither its address nor whether its querier runs.
InterfaceView viewOfACopy() {
  InterfaceView view = interfaceNamed("eth0", IpAddr());
  statusOf(view).stateIs(QuerierStatus::querierStateNonQuerier);
  statusOf(view).electedQuerierAddrIs(IpAddr(10, 0, 0, 1));
  statusOf(view).otherQuerierExpiryTimeIs(1100.0);
  statusOf(view).generalQueryExpiryTimeIs(never);
  view.isCopy = true;
  return view;
}

TEST(StateParts, interfacesShowNoAddressesWhereNoneIsKnown) {
  const std::vector views{viewOfACopy()};
  EXPECT_EQ(stateText(StatePart::interfaces, views, now),
            "INTERFACE  ROLE        QUERIER   SINCE  VERSION  ROBUSTNESS  INTERVAL  RESPONSE  "
            "NEXT QUERY  QUERIER LOST  GROUPS\n"
            "eth0       nonQuerier  10.0.0.1  -      0        2           2m05s     10s       "
            "-           1m40s         0\n");
  const auto json = nlohmann::json::parse(stateJson(StatePart::interfaces, views, now));
  ASSERT_EQ(json.size(), 1u);
  EXPECT_TRUE(json[0]["address"].is_null());
  EXPECT_TRUE(json[0]["running"].is_null());
  EXPECT_EQ(json[0]["otherQuerierExpirySeconds"], 100.0);
  EXPECT_EQ(json[0]["groupCount"], 0);
}

TEST(StateParts, groupsAreAnArrayOfObjectsWithTheirSources) {
  const std::vector views{viewOfACopy()};
  joinVersion2(views[0], IpAddr(239, 1, 1, 1));
  joinVersion3(views[0], IpAddr(232, 1, 1, 1));
  EXPECT_EQ(stateJson(StatePart::groups, views, now),
            R"([
{"interface":"eth0","group":"232.1.1.1","filterMode":"exclude","compatibilityMode":3,)"
            R"("lastReporter":"0.0.0.0","upSeconds":100.0,"timeLeftSeconds":100.0,"sources":[)"
            R"({"source":"10.0.0.50","excluded":false,"upSeconds":1.0,"timeLeftSeconds":200.0},)"
            R"({"source":"10.0.0.51","excluded":true,"upSeconds":10.0,"timeLeftSeconds":null}]},
{"interface":"eth0","group":"239.1.1.1","filterMode":"exclude","compatibilityMode":2,)"
            R"("lastReporter":"10.0.0.11","upSeconds":3.2,"timeLeftSeconds":250.0,"sources":[]}
]
)");
}

TEST(StateParts, sourcesAreARowEach) {
  const std::vector views{viewOfACopy()};
  joinVersion3(views[0], IpAddr(232, 1, 1, 1));
  EXPECT_EQ(stateText(StatePart::sources, views, now),
            "INTERFACE  GROUP      SOURCE     STATE      UP    LEFT\n"
            "eth0       232.1.1.1  10.0.0.50  forwarded  1.0s  3m20s\n"
            "eth0       232.1.1.1  10.0.0.51  excluded   10s   -\n");
  const auto json = nlohmann::json::parse(stateJson(StatePart::sources, views, now));
  EXPECT_EQ(json[1], nlohmann::json::parse(R"({"interface":"eth0","group":"232.1.1.1",
      "source":"10.0.0.51","excluded":true,"upSeconds":10.0,"timeLeftSeconds":null})"));
}

TEST(StateParts, countersAreARowAnInterfaceForPrograms) {
  const std::vector views{viewOfACopy()};
  statusOf(views[0]).joinsIs(7);
  EXPECT_EQ(nlohmann::json::parse(stateJson(StatePart::counters, views, now))[0]["joins"], 7);
}

TEST(StateParts, reportThatThereIsNothing) {
  const std::vector views{viewOfACopy()};
  EXPECT_EQ(stateText(StatePart::groups, views, now), "no groups\n");
  EXPECT_EQ(stateText(StatePart::sources, views, now), "no sources\n");
  for (const StatePart part : {StatePart::interfaces, StatePart::counters}) {
    EXPECT_EQ(stateText(part, {}, now), "no interfaces\n");
    EXPECT_EQ(stateJson(part, {}, now), "[]\n");
  }
}

TEST(PrintState, writesTheFormAskedFor) {
  wallClockDifferenceIs(0.0);
  std::FILE* out = std::tmpfile();
  printState(out, StatePart::everything, {}, now, Format::text);
  printState(out, StatePart::everything, {}, now, Format::json);
  std::rewind(out);
  std::string text(200, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), out));
  std::fclose(out);
  wallClockDifferenceIs({});
  EXPECT_EQ(text,
            "no interfaces\n{\"time\":1000.0,\"utc\":\"1970-01-01T00:16:40.000000Z\","
            "\"event\":\"state\",\"interfaces\":[]}\n");
}

}  // namespace
}  // namespace Agent
