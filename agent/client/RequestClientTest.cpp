#include <Client/RequestClient.h>

#include <csignal>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Client/BadRequest.h>
#include <Mox/Trace.h>
#include <Server/RequestServer.h>

#include <AgentTestSupport/ServedAgent.h>
#include <AgentTestSupport/TempFolder.h>
#include <AgentTestSupport/TestSocket.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

namespace Agent {
namespace {

using std::chrono_literals::operator""s;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::ThrowsMessage;

// Without time to wait, an agent still has all the time that it needs in the same process.
class RequestClientTest : public testing::Test {
 protected:
  // A real server of requests.
  RequestClient& served() {
    server_.emplace(
        agent_.loop().io(), RequestServer::Setup{.path = path_}, agent_.loop().wheel(),
        RequestServices{.queriers =
                            [] {
                              return RequestServices::Queriers{{"eth0", nullptr}};
                            },
                        .roots =
                            [this] {
                              return ObjectRoots{{"config/eth0", agent_.config()}};
                            },
                        .turn = [] {},
                        .clearGroups =
                            [this](const std::string& interface, std::optional<Ilvo::IpAddr> addr) {
                              cleared_ = interface + (addr ? " one" : " all");
                              return size_t{2};
                            },
                        .config = {.reload = [this] { return changes_; },
                                   .interfaces = [] { return std::vector<std::string>{"eth0"}; },
                                   .settings =
                                       [](const std::string& interface) {
                                         return std::optional(settingsOf(interface));
                                       }}});
    return client_.emplace(agent_.loop(), path_, 0s);
  }
  // The test itself serves the path and answers the first request.
  RequestClient& answeredWith(const std::string& answer) {
    serving_.emplace(TestSocket::servingAt(path_));
    client_.emplace(agent_.loop(), path_, 0s);
    peer_.emplace(serving_->accepted());
    peer_->send(answer);
    return *client_;
  }
  RequestClient& answeredFinallyWith(const std::string& answer) {
    answeredWith(answer);
    peer_->endOutput();
    return *client_;
  }
  static std::vector<ShownSetting> settingsOf(const std::string& interface) {
    if (interface.empty()) return {};
    return {{.key = "aSeconds", .name = "a", .value = 2.0, .text = "2s", .origin = "f:3"},
            {.key = "b", .name = "b", .value = true, .text = "on", .origin = ""}};
  }
  std::vector<ConfigChange> changes_;
  std::string cleared_;
  void call() { client_->call("eth0", "clearCounters"); }
  static auto failure(const std::string& part) {
    return ThrowsMessage<std::runtime_error>(HasSubstr(part));
  }

  ServedAgent agent_;
  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/request.sock";
  std::optional<TestSocket> serving_;
  std::optional<TestSocket> peer_;
  std::optional<RequestServer> server_;
  std::optional<RequestClient> client_;
};

TEST_F(RequestClientTest, getsAValueForProgramsAndForPeople) {
  const auto value = served().get("config/eth0/queryInterval");
  EXPECT_EQ(value.json, "125.0");
  EXPECT_THAT(value.lines, ElementsAre("125"));
  EXPECT_THAT(client_->get("").lines, ElementsAre("config/eth0"));
  EXPECT_THAT(client_->get("config/eth0").lines, Contains("robustness = 2"));
}

TEST_F(RequestClientTest, completesPaths) {
  EXPECT_THAT(served().completions("config/eth0/rob"), ElementsAre("config/eth0/robustness"));
}

TEST_F(RequestClientTest, levelsOfHandlesAreSetAndRead) {
  Mox::TraceHandle& handle = Mox::TraceHandle::named("RequestClientTest");
  served().levelIs("RequestClientTest", 7);
  EXPECT_EQ(handle.ringLevel(), 7);
  EXPECT_THAT(client_->handles("RequestClientTest"),
              ElementsAre(testing::AllOf(Field(&RequestClient::Handle::name, "RequestClientTest"),
                                         Field(&RequestClient::Handle::level, 7))));
  EXPECT_GT(client_->handles("").size(), 1u);
}

TEST_F(RequestClientTest, tracesAreReadToTheirEnd) {
  Mox::TraceHandle& handle = Mox::TraceHandle::named("RequestClientTest");
  handle.ringLevelIs(9);
  Mox::trace<3>(handle, "recorded once");
  served().trace("RequestClientTest");
  std::vector<std::string> texts;
  while (const auto line = client_->nextTrace()) texts.push_back(line->text);
  EXPECT_THAT(texts, Contains("recorded once"));
}

TEST_F(RequestClientTest, traceLineKeepsItsJson) {
  const std::string line = R"({"time":12.5,"level":3,"handle":"Some","text":"words"})";
  answeredWith(line + "\n{\"lost\":7}\n{\"end\":true}\n").trace("");
  const auto first = client_->nextTrace();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->json, line);
  EXPECT_EQ(first->time, 12.5);
  EXPECT_EQ(first->level, 3);
  EXPECT_EQ(first->handle, "Some");
  EXPECT_EQ(first->lost, std::nullopt);
  EXPECT_TRUE(client_->isLineReady());
  const auto second = client_->nextTrace();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->lost, 7u);
  EXPECT_EQ(client_->nextTrace(), std::nullopt);
  EXPECT_FALSE(client_->isLineReady());
}

TEST_F(RequestClientTest, followedTracesWaitAndEndWithASignal) {
  answeredWith("{\"lost\":7}\n").followTraces("");
  EXPECT_TRUE(client_->nextTrace());
  boost::asio::post(agent_.loop().io(), [] { std::raise(SIGINT); });
  EXPECT_EQ(client_->nextTrace(), std::nullopt);
}

TEST_F(RequestClientTest, sendsOneLineForARequest) {
  answeredWith("{}\n");
  client_->call("et\xffh0", "x");
  EXPECT_EQ(peer_->received(),
            "{\"op\":\"call\",\"interface\":\"et\xef\xbf\xbdh0\",\"operation\":\"x\"}\n");
}

TEST_F(RequestClientTest, rejectedRequestIsABadRequest) {
  served();
  EXPECT_THAT([&] { client_->call("eth7", "clearCounters"); },
              ThrowsMessage<BadRequest>("the agent has no interface eth7; it has: eth0"));
}

TEST_F(RequestClientTest, requestThatFailsNowIsNoBadRequest) {
  served();
  EXPECT_THAT([&] { call(); }, failure("there is no querier on eth0 now"));
}

TEST_F(RequestClientTest, withoutAnAgentThereIsNoClient) {
  EXPECT_THAT(
      [&] { client_.emplace(agent_.loop(), path_); },
      ThrowsMessage<ConnectError>(HasSubstr("no agent is running: nobody serves " + path_)));
}

TEST_F(RequestClientTest, agentThatSendsNothingIsNamed) {
  answeredWith("");
  EXPECT_THAT([&] { call(); },
              failure("the agent at " + path_ + " says nothing for 0 s: it may hang"));
}

TEST_F(RequestClientTest, agentThatGoesIsNamedAfterItsLastWholeLine) {
  answeredFinallyWith("{\"lost\":7}\n{\"lo").trace("");
  EXPECT_TRUE(client_->nextTrace());
  EXPECT_THAT([&] { client_->nextTrace(); }, failure("the agent has gone"));
}

// An agent that is full answers before it was asked, and closes.
TEST_F(RequestClientTest, reasonThatWasSentBeforeTheRequestIsRead) {
  answeredWith("{\"error\":\"full\"}\n");
  peer_->close();
  EXPECT_THAT([&] { call(); }, failure("full"));
}

TEST_F(RequestClientTest, answersThatAreNoneAreNotUnderstood) {
  const std::string text = "what serves " + path_ + " is not understood: ";
  for (const char* answer : {"[]\n", "HTTP/1.1 400 Bad Request\r\n", "\xff\xfe\n", "\n"}) {
    answeredWith(answer);
    EXPECT_THAT([&] { call(); }, failure(text + "no JSON object")) << answer;
    serving_.reset();
    std::filesystem::remove(path_);
  }
}

TEST_F(RequestClientTest, answersThatLackSomethingAreNotUnderstood) {
  const std::string text = "what serves " + path_ + " is not understood: ";
  const auto expectNotUnderstood = [&](const std::string& answer, auto request) {
    answeredWith(answer + "\n");
    EXPECT_THAT([&] { request(*client_); }, failure(text)) << answer;
    serving_.reset();
    std::filesystem::remove(path_);
  };
  const auto next = [](RequestClient& client) { client.nextTrace(); };
  expectNotUnderstood("{}", [](RequestClient& client) { client.get("a"); });
  expectNotUnderstood("{\"value\":1}", [](RequestClient& client) { client.get("a"); });
  expectNotUnderstood("{\"paths\":7}", [](RequestClient& client) { client.completions("a"); });
  expectNotUnderstood("{\"handles\":[{}]}", [](RequestClient& client) { client.handles(""); });
  expectNotUnderstood("{\"time\":null}", next);
  expectNotUnderstood("{\"lost\":\"many\"}", next);
}

TEST_F(RequestClientTest, aReloadReturnsItsChangesOrItsFaults) {
  EXPECT_TRUE(served().reload().empty());
  changes_ = {{.kind = ConfigChange::added, .interface = "eth1"}};
  const auto changes = client_->reload();
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0].text, "eth1 added");
  EXPECT_EQ(changes[0].json, R"({"change":"added","interface":"eth1","text":"eth1 added"})");
  EXPECT_FALSE(changes[0].isFault);
  changes_ = {{.kind = ConfigChange::fault, .origin = "f:3:1", .what = "no"}};
  EXPECT_TRUE(client_->reload().at(0).isFault);
}

TEST_F(RequestClientTest, settingsAreThoseOfTheAgentAndThoseOfInterfaces) {
  const auto all = served().settings("");
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].interface, "");
  EXPECT_EQ(all[1].interface, "eth0");
  ASSERT_EQ(all[1].settings.size(), 2u);
  EXPECT_EQ(all[1].settings[0].key, "aSeconds");
  EXPECT_EQ(all[1].settings[0].json, "2.0");
  EXPECT_EQ(all[1].settings[0].text, "2s");
  EXPECT_EQ(all[1].settings[0].origin, "f:3");
  EXPECT_EQ(all[1].settings[1].origin, "");
  EXPECT_THROW(client_->settings("eth7"), BadRequest);
}

TEST_F(RequestClientTest, anAnswerWithoutItsEndIsAnError) {
  answeredFinallyWith("{\"change\":\"added\",\"text\":\"eth1 added\"}\n");
  EXPECT_THAT([&] { client_->reload(); }, failure("the agent has gone"));
}

}  // namespace
}  // namespace Agent
