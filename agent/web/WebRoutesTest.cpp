#include <Web/WebRoutes.h>

#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <AgentTestSupport/ServedAgent.h>
#include <AgentTestSupport/TestAddresses.h>
#include <Report/GroupReport.h>
#include <Report/StateReport.h>

namespace Agent {
namespace {

using Json = nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

class WebRoutesTest : public testing::Test {
 protected:
  void begin() {
    agent_.start();
    state_.emplace(agent_.loop(), agent_.path());
    state_->start();
    agent_.advance(1.0);
    ASSERT_TRUE(state_->agent().isCurrent());
  }
  WebAnswer answerOf(std::string_view target, std::string_view lastId = {}) {
    return WebRoutes(*state_).answer({.target = target, .lastEventId = lastId});
  }
  // The whole answer, unless it waits for more.
  std::string textOf(WebAnswer answer) {
    if (!answer.body) return answer.text;
    std::string text;
    while (answer.body->append(text) == WebBody::Progress::more) {
    }
    return text;
  }
  Json jsonOf(std::string_view target, unsigned status = 200) {
    WebAnswer answer = answerOf(target);
    EXPECT_EQ(answer.status, status) << target;
    EXPECT_EQ(answer.type, "application/json");
    return Json::parse(textOf(std::move(answer)));
  }
  void groups(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      agent_.status()->groupIs(Ilvo::IpAddr((239u << 24) + i))->lastReporterIs(host);
    }
    agent_.advance(1.0);
  }

  ServedAgent agent_;
  std::optional<WebState> state_;
};

TEST_F(WebRoutesTest, interfacesAreThoseOfTheStateReport) {
  begin();
  groups(2);
  const std::vector<InterfaceView> views = state_->views();
  EXPECT_EQ(jsonOf("/api/v1/interfaces"),
            Json::parse(stateJson(StatePart::interfaces, views, Mox::now())));
  EXPECT_EQ(jsonOf("/api/v1/interfaces/eth0"), jsonOf("/api/v1/interfaces").at(0));
  EXPECT_EQ(jsonOf("/api/v1/counters"),
            Json::parse(stateJson(StatePart::counters, views, Mox::now())));
}

TEST_F(WebRoutesTest, groupsAreAllOfThemOrAPage) {
  begin();
  groups(700);
  EXPECT_THAT(jsonOf("/api/v1/interfaces/eth0/groups"), SizeIs(700));
  const WebAnswer page = answerOf("/api/v1/interfaces/eth0/groups?limit=3&from=239.0.0.10");
  EXPECT_THAT(page.headers, ElementsAre(Pair("Link", "<?from=239.0.0.13&limit=3>; rel=\"next\"")));
  EXPECT_EQ(Json::parse(page.text).at(2).at("group"), "239.0.0.12");
  EXPECT_THAT(answerOf("/api/v1/interfaces/eth0/groups?from=239.0.2.180").headers, IsEmpty());
}

TEST_F(WebRoutesTest, aGroupIsAnObject) {
  begin();
  groups(2);
  EXPECT_EQ(jsonOf("/api/v1/interfaces/eth0/groups/239.0.0.1"),
            jsonOf("/api/v1/interfaces/eth0/groups").at(1));
}

TEST_F(WebRoutesTest, settingsHaveTheKeysOfTheConfiguration) {
  begin();
  agent_.config()->robustnessIs(5);
  agent_.advance(1.0);
  const Json config = jsonOf("/api/v1/config");
  EXPECT_EQ(config.at(0).at("interface"), "eth0");
  EXPECT_EQ(config.at(0).at("robustness"), 5);
  EXPECT_EQ(config.at(0).at("queryIntervalSeconds"), 125.0);
}

TEST_F(WebRoutesTest, anAgentThatHasGoneIsSaidAndItsStateStays) {
  begin();
  groups(1);
  EXPECT_EQ(jsonOf("/api/v1/agent").at("connected"), true);
  agent_.stop();
  agent_.advance(3.0);
  const Json gone = jsonOf("/api/v1/agent");
  EXPECT_EQ(gone.at("connected"), false);
  EXPECT_THAT(gone.at("reason").get<std::string>(), HasSubstr("no agent"));
  EXPECT_THAT(jsonOf("/api/v1/interfaces/eth0/groups"), SizeIs(1));
  agent_.start();
  agent_.advance(3.0);
  EXPECT_EQ(jsonOf("/api/v1/agent").at("connected"), true);
}

TEST_F(WebRoutesTest, anAgentThatWasNeverThereIsNoError) {
  state_.emplace(agent_.loop(), agent_.path());
  state_->start();
  EXPECT_EQ(jsonOf("/api/v1/agent").at("connected"), false);
  EXPECT_EQ(jsonOf("/api/v1/interfaces"), Json::array());
  EXPECT_EQ(jsonOf("/api/v1/config"), Json::array());
  agent_.start();
  agent_.advance(3.0);
  EXPECT_THAT(jsonOf("/api/v1/interfaces"), SizeIs(1));
}

TEST_F(WebRoutesTest, eventsAreAStreamThatWaits) {
  begin();
  WebAnswer answer = answerOf("/api/v1/events");
  EXPECT_EQ(answer.type, "text/event-stream");
  std::string text;
  answer.body->append(text);
  EXPECT_EQ(text.substr(0, 1), ":");
  text.clear();
  EXPECT_EQ(answer.body->append(text), WebBody::Progress::waits);
  int woken = 0;
  answer.body->wakeIs([&] { ++woken; });
  groups(1);
  EXPECT_EQ(woken, 1);
  EXPECT_EQ(answer.body->append(text), WebBody::Progress::more);
  EXPECT_THAT(text, HasSubstr(R"("event":"groupJoined","interface":"eth0","group":"239.0.0.0")"));
}

TEST_F(WebRoutesTest, thePageIsPartOfTheProgram) {
  begin();
  EXPECT_EQ(answerOf("/").text, answerOf("/index.html").text);
  EXPECT_EQ(answerOf("/").type, "text/html; charset=utf-8");
  EXPECT_THAT(answerOf("/").text, HasSubstr("src=\"app.js\""));
  EXPECT_EQ(answerOf("/app.js").type, "text/javascript; charset=utf-8");
  EXPECT_EQ(answerOf("/style.css").type, "text/css; charset=utf-8");
  EXPECT_EQ(answerOf("/icon.svg").type, "image/svg+xml");
  EXPECT_EQ(answerOf("/page/index.html").status, 404u);
}

struct WrongCase {
  const char* name;
  const char* target;
  unsigned status;
  const char* text;
};

class WrongRequestTest : public WebRoutesTest, public testing::WithParamInterface<WrongCase> {};

TEST_P(WrongRequestTest, isAnsweredWithTheReason) {
  begin();
  EXPECT_THAT(jsonOf(GetParam().target, GetParam().status).at("error").get<std::string>(),
              HasSubstr(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Targets, WrongRequestTest,
    testing::Values(
        WrongCase{"wrongCode", "/%zz", 400, "not well-formed"},
        WrongCase{"parentSegment", "/api/v1/../x", 400, "not well-formed"},
        WrongCase{"partOfAPath", "/api", 404, "/api/v1/interfaces"},
        WrongCase{"otherVersion", "/api/v2/interfaces", 404, "path"},
        WrongCase{"unknownInterface", "/api/v1/interfaces/eth7", 404, "no interface eth7"},
        WrongCase{"groupsOfAnUnknownInterface", "/api/v1/interfaces/eth7/groups", 404,
                  "no interface eth7"},
        WrongCase{"groupOfAnUnknownInterface", "/api/v1/interfaces/eth7/groups/239.1.1.1", 404,
                  "no interface eth7"},
        WrongCase{"unknownGroup", "/api/v1/interfaces/eth0/groups/239.1.1.1", 404,
                  "eth0 has no group 239.1.1.1"},
        WrongCase{"groupThatIsNoAddress", "/api/v1/interfaces/eth0/groups/x", 400,
                  "no IPv4 address"},
        WrongCase{"fromThatIsNoAddress", "/api/v1/interfaces/eth0/groups?from=x", 400,
                  "from is no IPv4 address"},
        WrongCase{"limitOfNothing", "/api/v1/interfaces/eth0/groups?limit=0", 400,
                  "from 1 to 10000"},
        WrongCase{"limitBeyondAPage", "/api/v1/interfaces/eth0/groups?limit=10001", 400,
                  "from 1 to 10000"},
        WrongCase{"negativeLimit", "/api/v1/interfaces/eth0/groups?limit=-1", 400,
                  "from 1 to 10000"},
        WrongCase{"emptyLimit", "/api/v1/interfaces/eth0/groups?limit=", 400, "from 1 to 10000"},
        WrongCase{"metricsOfNoGroups", "/metrics?groups=0", 400, "from 1 to 10000"},
        WrongCase{"metricsOfTooManyGroups", "/metrics?groups=10001", 400, "from 1 to 10000"},
        WrongCase{"metricsOfSomeGroups", "/metrics?groups=x", 400, "from 1 to 10000"},
        WrongCase{"metricsOfGroupsTwice", "/metrics?groups=1&groups=2", 400, "not well-formed"},
        WrongCase{"unknownKeyOfMetrics", "/metrics?group=1", 400, "unknown key: group"},
        WrongCase{"pathBelowMetrics", "/metrics/eth0", 404, "path"},
        WrongCase{"unknownKey", "/api/v1/interfaces?form=1", 400, "unknown key: form"}),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace Agent
