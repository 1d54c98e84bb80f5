// Requests about the configuration.
#include <stdexcept>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RequestTestSupport.h"

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

constexpr const char* end = R"({"end":true})";

class ConfigRequestsTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  RequestServices services() {
    RequestServices all = agent_.services();
    all.config = {.reload =
                      [this] {
                        if (!refusal_.empty()) throw std::runtime_error(refusal_);
                        return changes_;
                      },
                  .interfaces = [this] { return interfaces_; },
                  .settings = [this](const std::string& name) { return settingsOf(name); }};
    return all;
  }
  std::optional<std::vector<ShownSetting>> settingsOf(const std::string& interface) const {
    if (interface == gone_) return std::nullopt;
    return std::vector<ShownSetting>{
        {.key = "of", .name = "of", .value = interface, .text = interface, .origin = "default"},
        {.key = "b", .name = "b", .value = Mox::U64{2}, .text = "2", .origin = ""}};
  }
  Lines answerTo(const std::string& request, Request::Rights rights = Request::Rights::configure) {
    const RequestServices all = services();
    RequestSession session(all, rights);
    session.in(request + "\n");
    std::string text;
    for (auto out = session.out(); !out.empty() || session.isWorking(); out = session.out()) {
      text += out;
      session.taken(out.size());
    }
    return linesOf(text);
  }

  RequestAgent agent_;
  std::vector<ConfigChange> changes_;
  std::vector<std::string> interfaces_{"eth0", "eth1"};
  std::string gone_ = "none";
  std::string refusal_;
};

TEST_F(ConfigRequestsTest, aReloadIsAnsweredWithALineForEachChange) {
  changes_ = {{.kind = ConfigChange::changed,
               .interface = "eth0",
               .setting = "robustness",
               .before = "2",
               .after = "3",
               .origin = "f:3"},
              {.kind = ConfigChange::removed, .interface = "eth1"}};
  EXPECT_THAT(
      answerTo(R"({"op":"reload"})"),
      ElementsAre(R"({"change":"changed","interface":"eth0","setting":"robustness","before":"2",)"
                  R"("after":"3","origin":"f:3","text":"eth0 robustness 3 (was 2), f:3"})",
                  R"({"change":"removed","interface":"eth1","text":"eth1 removed"})", end));
  EXPECT_EQ(agent_.turns(), 2);
}

TEST_F(ConfigRequestsTest, aReloadThatChangesNothingHasNothingButTheEnd) {
  EXPECT_THAT(answerTo(R"({"op":"reload"})"), ElementsAre(end));
}

TEST_F(ConfigRequestsTest, manyChangesComeInParts) {
  for (int i = 0; i < 1000; ++i) {
    changes_.push_back({.kind = ConfigChange::added, .interface = fmt::format("v{}", i)});
  }
  const Lines lines = answerTo(R"({"op":"reload"})");
  ASSERT_THAT(lines, SizeIs(1001));
  EXPECT_THAT(lines[999], HasSubstr("v999 added"));
}

TEST_F(ConfigRequestsTest, aReloadNeedsTheRightToConfigureAndAFile) {
  EXPECT_THAT(answerTo(R"({"op":"reload"})", Request::Rights::read),
              ElementsAre(HasSubstr("not permitted to have the configuration read again")));
  refusal_ = "there is no file";
  EXPECT_THAT(answerTo(R"({"op":"reload"})"), ElementsAre(R"({"error":"there is no file"})"));
}

TEST_F(ConfigRequestsTest, settingsAreALineForTheAgentAndOneForEachInterface) {
  EXPECT_THAT(
      answerTo(R"({"op":"config"})", Request::Rights::read),
      ElementsAre(
          R"({"settings":[{"key":"of","name":"of","value":"","text":"","origin":"default"},)"
          R"({"key":"b","name":"b","value":2,"text":"2","origin":null}]})",
          HasSubstr(R"({"interface":"eth0","settings":[)"),
          HasSubstr(R"({"interface":"eth1","settings":[)"), end));
}

TEST_F(ConfigRequestsTest, settingsOfOneInterface) {
  EXPECT_THAT(answerTo(R"({"op":"config","interface":"eth1"})"),
              ElementsAre(HasSubstr(R"({"settings":[)"), HasSubstr(R"("interface":"eth1")"), end));
  EXPECT_THAT(answerTo(R"({"op":"config","interface":"eth7"})"),
              ElementsAre(HasSubstr("the agent has no interface eth7; it has: eth0, eth1")));
}

TEST_F(ConfigRequestsTest, anInterfaceThatWentMeanwhileIsLeftOut) {
  gone_ = "eth0";
  EXPECT_THAT(answerTo(R"({"op":"config"})"),
              ElementsAre(HasSubstr("settings"), HasSubstr(R"("interface":"eth1")"), end));
}

struct Text {
  const char* name;
  ConfigChange change;
  const char* text;
};

class ChangeTextTest : public testing::TestWithParam<Text> {};

INSTANTIATE_TEST_SUITE_P(
    , ChangeTextTest,
    testing::Values(
        Text{"fault", {.kind = ConfigChange::fault, .origin = "f:3:1", .what = "no"}, "f:3:1: no"},
        Text{"faultOfNoPlace", {.kind = ConfigChange::fault, .what = "no"}, "no"},
        Text{"ofTheAgent",
             {.kind = ConfigChange::changed,
              .setting = "queries",
              .before = "off",
              .after = "on",
              .origin = "f:3"},
             "agent queries on (was off), f:3"},
        Text{"needsRestart",
             {.kind = ConfigChange::needsRestart,
              .setting = "user",
              .before = "this one",
              .after = "x",
              .origin = "f:3"},
             "agent user stays this one until a restart; x, f:3"}),
    [](const auto& made) { return made.param.name; });

TEST_P(ChangeTextTest, saysWhatChanged) {
  EXPECT_EQ(changeText(GetParam().change), GetParam().text);
}

}  // namespace
}  // namespace Agent
