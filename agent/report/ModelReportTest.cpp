// The shape of the state in the model ietf-igmp-mld (RFC 8652).
#include <Report/ModelReport.h>

#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Agent {
namespace {

using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using testing::ElementsAre;
using ModelJson = nlohmann::json;

constexpr Mox::Seconds reportTime = 5000.0;
const char* const igmpPath =
    "/ietf-routing:routing/control-plane-protocols/control-plane-protocol/ietf-igmp-mld:igmp";

// The part of the model that the report fills, by path: the pattern of a leaf's JSON.
const std::map<std::string, std::string>& modelLeaves() {
  const std::string address = R"("\d+\.\d+\.\d+\.\d+")";
  const std::string uint32 = R"(\d{1,10})";
  const std::string counter64 = R"("\d{1,20}")";
  const std::string protocol =
      "/ietf-routing:routing/control-plane-protocols/control-plane-protocol";
  const std::string global = std::string(igmpPath) + "/global";
  const std::string interface = std::string(igmpPath) + "/interfaces/interface";
  static const std::map<std::string, std::string> leaves = [&] {
    std::map<std::string, std::string> all{
        {protocol + "/type", "\"ietf-igmp-mld:igmp\""},
        {protocol + "/name", "\".+\""},
        {global + "/max-groups", uint32},
        {global + "/groups-count", uint32},
        {global + "/statistics/error/total", counter64},
        {interface + "/interface-name", "\".+\""},
        {interface + "/require-router-alert", "true|false"},
        {interface + "/max-groups", uint32},
        {interface + "/max-group-sources", uint32},
        {interface + "/query-interval", R"(\d{1,5})"},
        {interface + "/query-max-response-time", R"(\d{1,4})"},
        {interface + "/robustness-variable", "[1-7]"},
        {interface + "/version", "[1-3]"},
        {interface + "/oper-status", "\"(up|down)\""},
        {interface + "/querier", address},
        {interface + "/group/group-address", address},
        {interface + "/group/expire", uint32},
        {interface + "/group/filter-mode", "\"(include|exclude)\""},
        {interface + "/group/up-time", uint32},
        {interface + "/group/last-reporter", address},
        {interface + "/group/source/source-address", address},
        {interface + "/group/source/expire", uint32},
        {interface + "/group/source/up-time", uint32}};
    for (const char* way : {"/statistics/received/", "/statistics/sent/"}) {
      for (const char* leaf : {"total", "query", "report", "leave"}) {
        all[global + way + leaf] = counter64;
      }
    }
    return all;
  }();
  return leaves;
}

// Checks each leaf, and gives the paths of all.
void walk(const ModelJson& json, const std::string& path, std::set<std::string>& seen) {
  if (json.is_object()) {
    for (const auto& [key, value] : json.items()) {
      walk(value, std::string(path).append("/").append(key), seen);
    }
  } else if (json.is_array()) {
    EXPECT_FALSE(json.empty()) << path;
    for (const ModelJson& each : json) walk(each, path, seen);
  } else {
    const auto leaf = modelLeaves().find(path);
    if (leaf == modelLeaves().end()) {
      ADD_FAILURE() << path << " is not in the model";
      return;
    }
    seen.insert(path);
    EXPECT_TRUE(std::regex_match(json.dump(), std::regex(leaf->second))) << path << ' ' << json;
  }
}

struct ModelInterface {
  explicit ModelInterface(const std::string& name = "eth0")
      : view{.name = name, .address = IpAddr(10, 0, 0, 1), .status = status} {
    status->queryIntervalIs(125.0);
    status->queryResponseIntervalIs(10.0);
    status->robustnessIs(2);
    status->querierVersionIs(Gmp::Igmp::igmpVersion3);
    status->electedQuerierAddrIs(IpAddr(10, 0, 0, 1));
  }

  void addGroup() {
    const auto group = status->groupIs(IpAddr(239, 1, 1, 1));
    group->filterModeIs(Gmp::Igmp::filterModeExclude);
    group->creationTimeIs(reportTime - 100.7);
    group->expiryTimeIs(reportTime + 250.9);
    group->lastReporterIs(IpAddr(10, 0, 0, 11));
    for (const unsigned last : {9u, 3u}) {
      const auto source = group->sourceIs(IpAddr((10u << 24) + last));
      source->creationTimeIs(reportTime - 5.0);
      source->expiryTimeIs(last == 9 ? 0.0 : reportTime + 7.0);
      source->expiredIs(last == 9);
    }
  }

  const Mox::Ptr<QuerierStatus> status = Gmp::Igmp::querierStatusFactory();
  InterfaceView view;
};

// The entry of the list of interfaces.
ModelJson entryOf(const InterfaceView& view) {
  const ModelJson json = ModelJson::parse(modelJson({&view, 1}, {&view, 1}, nullptr, reportTime));
  return json.at(ModelJson::json_pointer(
      "/ietf-routing:routing/control-plane-protocols/control-plane-protocol/0/"
      "ietf-igmp-mld:igmp/interfaces/interface/0"));
}

TEST(ModelReport, hasTheShapeOfTheModel) {
  ModelInterface interface;
  InterfaceView& view = interface.view;
  view.intake = Mox::makePtr<IntakeConfig>(Mox::Name("eth0"));
  interface.addGroup();
  const std::string text =
      modelJson({&view, 1}, {&view, 1}, Mox::makePtr<IntakeProcessConfig>(), reportTime);
  EXPECT_EQ(text.find('\n'), text.size() - 1);
  std::set<std::string> seen;
  walk(ModelJson::parse(text), "", seen);
  EXPECT_EQ(seen.size(), modelLeaves().size());
}

TEST(ModelReport, isEmptyWithoutInterfaces) {
  const ModelJson igmp =
      ModelJson::parse(modelJson({}, {}, nullptr, reportTime))
          .at(ModelJson::json_pointer("/ietf-routing:routing/control-plane-protocols/"
                                      "control-plane-protocol/0/ietf-igmp-mld:igmp"));
  EXPECT_EQ(igmp.at("interfaces"), ModelJson::object());
  EXPECT_EQ(igmp.at("global").at("groups-count"), 0);
}

TEST(ModelReport, timesAreWholeSecondsThatHavePassed) {
  ModelInterface interface;
  interface.addGroup();
  EXPECT_EQ(entryOf(interface.view).at("group"), ModelJson::parse(R"([{
      "group-address": "239.1.1.1", "expire": 250, "filter-mode": "exclude", "up-time": 100,
      "last-reporter": "10.0.0.11", "source": [
        {"source-address": "10.0.0.3", "expire": 7, "up-time": 5},
        {"source-address": "10.0.0.9", "expire": 0, "up-time": 5}]}])"));
}

TEST(ModelReport, aQuerierThatDoesNotRunIsDownAndItsTimersAreOver) {
  ModelInterface interface;
  interface.addGroup();
  interface.view.running = false;
  const ModelJson entry = entryOf(interface.view);
  EXPECT_EQ(entry.at("oper-status"), "down");
  EXPECT_EQ(entry.at("group").at(0).at("expire"), 0);
  EXPECT_EQ(entry.at("group").at(0).at("source").at(0).at("expire"), 0);
}

struct ValueCase {
  const char* name;
  void (*set)(QuerierStatus&);
  const char* key;
  const char* json;  // null where the leaf is left out
};

class ModelValueTest : public testing::TestWithParam<ValueCase> {};

TEST_P(ModelValueTest, isGivenWhereTheModelHasIt) {
  const ModelInterface interface;
  GetParam().set(*interface.status);
  const ModelJson entry = entryOf(interface.view);
  if (GetParam().json == nullptr) {
    EXPECT_FALSE(entry.contains(GetParam().key)) << entry;
  } else {
    EXPECT_EQ(entry.value(GetParam().key, ModelJson()).dump(), GetParam().json);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Values, ModelValueTest,
    testing::Values(
        ValueCase{"interval", [](QuerierStatus& s) { s.queryIntervalIs(31744); }, "query-interval",
                  "31744"},
        ValueCase{"intervalOfPartsOfASecond", [](QuerierStatus& s) { s.queryIntervalIs(2.5); },
                  "query-interval", nullptr},
        ValueCase{"intervalOfNothing", [](QuerierStatus& s) { s.queryIntervalIs(0); },
                  "query-interval", nullptr},
        ValueCase{"responseTime", [](QuerierStatus& s) { s.queryResponseIntervalIs(1023); },
                  "query-max-response-time", "1023"},
        ValueCase{"responseTimeBeyondTheModel",
                  [](QuerierStatus& s) { s.queryResponseIntervalIs(1024); },
                  "query-max-response-time", nullptr},
        ValueCase{"robustnessBeyondTheModel", [](QuerierStatus& s) { s.robustnessIs(8); },
                  "robustness-variable", nullptr},
        ValueCase{"versionThatIsNotKnown",
                  [](QuerierStatus& s) { s.querierVersionIs(Gmp::Igmp::igmpVersionUnknown); },
                  "version", nullptr},
        ValueCase{"querierThatIsNotKnown",
                  [](QuerierStatus& s) { s.electedQuerierAddrIs(IpAddr()); }, "querier",
                  "\"0.0.0.0\""}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(ModelReport, countsTheMessagesOfAllInterfaces) {
  std::vector<InterfaceView> views;
  for (const char* name : {"eth0", "eth1"}) {
    const ModelInterface interface(name);
    views.push_back(interface.view);
    QuerierStatus& status = *interface.status;
    status.v1QueriesReceivedIs(1);
    status.v3QueriesReceivedIs(2'000'000'000);
    status.v2ReportReceivedIs(4'000'000'000);
    status.v2LeaveReceivedIs(8);
    status.v2QueriesSentIs(16);
    status.v3GSSQueriesSentIs(32);
    status.errorPacketReceivedIs(64);
  }
  const ModelJson igmp =
      ModelJson::parse(modelJson(views, std::span(views).first(1), nullptr, reportTime))
          .at(ModelJson::json_pointer("/ietf-routing:routing/control-plane-protocols/"
                                      "control-plane-protocol/0/ietf-igmp-mld:igmp"));
  EXPECT_EQ(igmp.at("interfaces").at("interface").size(), 1u);
  EXPECT_EQ(igmp.at("global").at("statistics"), ModelJson::parse(R"({
      "error": {"total": "128"},
      "received": {"total": "12000000018", "query": "4000000002", "report": "8000000000",
                   "leave": "16"},
      "sent": {"total": "96", "query": "96", "report": "0", "leave": "0"}})"));
}

}  // namespace
}  // namespace Agent
