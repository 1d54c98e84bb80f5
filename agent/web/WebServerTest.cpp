#include <Web/WebServer.h>

#include <deque>
#include <optional>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <AgentTestSupport/ServedAgent.h>
#include <AgentTestSupport/TestAddresses.h>

namespace Agent {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// A client in the loop of the server.
class Client {
 public:
  // With a small buffer, the kernel takes little on its behalf.
  Client(EventLoop& loop, Mox::U16 port, bool hasSmallBuffer = false) : loop_(loop) {
    const int bytes = 4096;
    if (hasSmallBuffer) setsockopt(fd_.fd(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    EXPECT_EQ(connect(fd_.fd(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  }

  void send(std::string_view bytes) {
    EXPECT_EQ(::send(fd_.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }
  // Until it has received that text; all that it has then.
  const std::string& receivedUntil(std::string_view text) {
    while (received_.find(text) == std::string::npos && !isEnded_) step();
    EXPECT_THAT(received_, HasSubstr(std::string(text)));
    return received_;
  }
  const std::string& receivedAll() {
    while (!isEnded_) step();
    return received_;
  }
  void forget() { received_.clear(); }
  bool isEnded() {
    step();
    return isEnded_;
  }

 private:
  void step() {
    loop_.runUntil(false, milliseconds(1));
    std::array<char, 65536> bytes;
    const ssize_t count = recv(fd_.fd(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count > 0) received_.append(bytes.data(), static_cast<size_t>(count));
    if (count == 0 || (count < 0 && errno != EAGAIN)) isEnded_ = true;
  }

  EventLoop& loop_;
  const Descriptor fd_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  std::string received_;
  bool isEnded_ = false;
};

class WebServerTest : public testing::Test {
 protected:
  WebServerTest() {
    agent_.start();
    state_.start();
  }
  void serve(milliseconds patience = WebServer::patience,
             milliseconds idle = WebServer::idleInterval) {
    server_.emplace(
        agent_.loop(), routes_,
        WebServer::Setup{
            .address = WebAddress::of("127.0.0.1:0"), .patience = patience, .idleInterval = idle});
    server_->start();
    agent_.advance(1.0);
  }
  Client& connected() { return clients_.emplace_back(agent_.loop(), server_->port()); }
  static std::string get(const std::string& target,
                         const std::string& fields = "Host: localhost\r\n") {
    return "GET " + target + " HTTP/1.1\r\n" + fields + "\r\n";
  }
  void groups(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      agent_.status()->groupIs(Ilvo::IpAddr((239u << 24) + i))->lastReporterIs(host);
    }
    agent_.advance(1.0);
  }

  ServedAgent agent_;
  WebState state_{agent_.loop(), agent_.path()};
  const WebRoutes routes_{state_};
  std::optional<WebServer> server_;
  std::deque<Client> clients_;
};

TEST_F(WebServerTest, answersOneRequestAfterTheOther) {
  serve();
  Client& client = connected();
  for (int i = 0; i < 3; ++i) {
    client.send(get("/api/v1/interfaces"));
    const std::string& answer = client.receivedUntil("\n]\n");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answer, HasSubstr("Content-Security-Policy: default-src 'self'\r\n"));
    EXPECT_THAT(answer, HasSubstr("X-Content-Type-Options: nosniff\r\n"));
    EXPECT_THAT(answer, HasSubstr("Cache-Control: no-store\r\n"));
    client.forget();
  }
  EXPECT_EQ(server_->requests(), 3u);
  EXPECT_EQ(server_->sessions(), 1u);
}

TEST_F(WebServerTest, answersPipelinedRequestsInOrder) {
  serve();
  Client& client = connected();
  client.send(get("/api/v1/nothing") + get("/api/v1/agent") +
              get("/api/v1/interfaces", "Host: localhost\r\nConnection: close\r\n"));
  const std::string& answers = client.receivedAll();
  const size_t first = answers.find("HTTP/1.1 404");
  const size_t second = answers.find("\"connected\":true");
  const size_t third = answers.find("\"interface\":\"eth0\"");
  EXPECT_LT(first, second);
  EXPECT_LT(second, third);
  EXPECT_NE(third, std::string::npos);
}

TEST_F(WebServerTest, sendsManyGroupsInChunks) {
  groups(3000);
  serve();
  Client& client = connected();
  client.send(get("/api/v1/interfaces/eth0/groups"));
  const std::string& answer = client.receivedUntil("\r\n0\r\n\r\n");
  EXPECT_THAT(answer, HasSubstr("Transfer-Encoding: chunked\r\n"));
  EXPECT_THAT(answer, HasSubstr("239.0.11.183"));
}

TEST_F(WebServerTest, sendsMetricsOfGroupsThatAreCountedInSteps) {
  groups(12000);
  serve();
  Client& client = connected();
  client.send(get("/metrics"));
  const std::string& answer = client.receivedUntil("\r\n0\r\n\r\n");
  EXPECT_THAT(answer, HasSubstr("Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
  EXPECT_THAT(answer, HasSubstr("igmp_v3_group_queries_sent_total{interface=\"eth0\"} 0\n"));
}

// HTTP/1.0 knows no chunks: the end of the connection ends the body.
TEST_F(WebServerTest, sendsManyGroupsToOldClients) {
  groups(700);
  serve();
  Client& client = connected();
  client.send("GET /api/v1/interfaces/eth0/groups HTTP/1.0\r\nHost: localhost\r\n\r\n");
  const std::string& answer = client.receivedAll();
  EXPECT_THAT(answer, Not(HasSubstr("chunked")));
  EXPECT_EQ(answer.substr(answer.size() - 3), "\n]\n");
}

TEST_F(WebServerTest, answersHeadWithoutABody) {
  serve();
  Client& client = connected();
  client.send("HEAD /api/v1/interfaces HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
  const std::string& answer = client.receivedAll();
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(answer, HasSubstr("Content-Length: "));
  EXPECT_EQ(answer.substr(answer.size() - 4), "\r\n\r\n");
}

TEST_F(WebServerTest, streamsEvents) {
  serve();
  Client& client = connected();
  client.send(get("/api/v1/events"));
  client.receivedUntil(": events of the agent\n\n");
  groups(1);
  EXPECT_THAT(client.receivedUntil("groupJoined"), HasSubstr("Content-Type: text/event-stream"));
}

TEST_F(WebServerTest, noticesThatAClientThatWaitsHasGone) {
  serve(WebServer::patience, milliseconds(5));
  connected().send(get("/api/v1/events"));
  clients_.back().receivedUntil(": events");
  clients_.clear();
  while (server_->sessions() != 0) agent_.loop().runUntil(false, milliseconds(1));
}

struct RefusedCase {
  const char* name;
  std::string request;
  const char* status;
};

class RefusedRequestTest : public WebServerTest, public testing::WithParamInterface<RefusedCase> {};

TEST_P(RefusedRequestTest, isAnsweredAndEndsNobodyElse) {
  serve();
  Client& other = connected();
  Client& client = connected();
  client.send(GetParam().request);
  EXPECT_THAT(client.receivedUntil("\r\n\r\n"), StartsWith(GetParam().status));
  other.send(get("/api/v1/agent"));
  other.receivedUntil("connected");
}

INSTANTIATE_TEST_SUITE_P(
    Requests, RefusedRequestTest,
    testing::Values(
        RefusedCase{"ofAnotherHost", "GET / HTTP/1.1\r\nHost: other.example\r\n\r\n",
                    "HTTP/1.1 421"},
        RefusedCase{"withoutAHost", "GET / HTTP/1.1\r\n\r\n", "HTTP/1.1 400"},
        RefusedCase{"ofTwoHosts",
                    "GET / HTTP/1.1\r\nHost: localhost\r\nHost: other.example\r\n\r\n",
                    "HTTP/1.1 400"},
        RefusedCase{"thatChanges", "DELETE /api/v1/agent HTTP/1.1\r\nHost: localhost\r\n\r\n",
                    "HTTP/1.1 405"},
        RefusedCase{"withABody",
                    "POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1000000\r\n\r\n",
                    "HTTP/1.1 413"},
        RefusedCase{
            "withALongHead",
            "GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(9000, 'x') + "\r\n\r\n",
            "HTTP/1.1 431"},
        RefusedCase{"ofAnotherProtocol", std::string("\x16\x03\x01\x02\x00\x01\x00\r\n\r\n", 11),
                    "HTTP/1.1 400"},
        RefusedCase{"withWrongCodes", "GET /%zz HTTP/1.1\r\nHost: localhost\r\n\r\n",
                    "HTTP/1.1 400"},
        RefusedCase{"outsideOfThePage", "GET /../etc/passwd HTTP/1.1\r\nHost: localhost\r\n\r\n",
                    "HTTP/1.1 400"}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(WebServerTest, endsAClientThatSendsSlowly) {
  serve(milliseconds(20));
  Client& client = connected();
  client.send("GET /");
  client.receivedAll();
  EXPECT_EQ(server_->sessions(), 0u);
}

TEST_F(WebServerTest, endsAClientThatTakesNothing) {
  groups(20000);
  serve(milliseconds(20));
  clients_.emplace_back(agent_.loop(), server_->port(), true)
      .send(get("/api/v1/interfaces/eth0/groups"));
  while (server_->requests() == 0 || server_->sessions() != 0) {
    agent_.loop().runUntil(false, milliseconds(1));
  }
}

TEST_F(WebServerTest, keepsNobodyOutForClientsThatSendNothing) {
  serve();
  for (size_t i = 0; i < 3 * WebServer::mostSessions; ++i) {
    connected();
    agent_.loop().poll();
    EXPECT_LE(server_->sessions(), WebServer::mostSessions);
  }
  Client& client = connected();
  client.send(get("/api/v1/agent"));
  client.receivedUntil("connected");
  EXPECT_EQ(server_->refused(), 0u);
}

TEST_F(WebServerTest, refusesAClientWhileAllOthersAreAnswered) {
  serve();
  for (size_t i = 0; i < WebServer::mostSessions; ++i) {
    connected().send(get("/api/v1/events"));
    clients_.back().receivedUntil(": events");
  }
  const std::string& answer = connected().receivedAll();
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 503"));
  const std::string body = answer.substr(answer.find("\r\n\r\n") + 4);
  EXPECT_THAT(answer, HasSubstr("Content-Length: " + std::to_string(body.size()) + "\r\n"));
  EXPECT_THAT(body, StartsWith("{\"error\":\"" + std::to_string(WebServer::mostSessions) + " "));
  EXPECT_EQ(server_->refused(), 1u);
}

struct AddressCase {
  const char* name;
  const char* text;
  const char* address;
  unsigned port;
  bool isPath;
  bool isLoopback;
};

class WebAddressTest : public testing::TestWithParam<AddressCase> {};

TEST_P(WebAddressTest, isTakenApart) {
  const WebAddress address = WebAddress::of(GetParam().text);
  EXPECT_EQ(address.address, GetParam().address);
  EXPECT_EQ(address.port, GetParam().port);
  EXPECT_EQ(address.isPath, GetParam().isPath);
  EXPECT_EQ(address.isLoopback, GetParam().isLoopback);
}

INSTANTIATE_TEST_SUITE_P(
    Addresses, WebAddressTest,
    testing::Values(AddressCase{"loopback", "127.0.0.1:9645", "127.0.0.1", 9645, false, true},
                    AddressCase{"otherLoopback", "127.8.0.1:1", "127.8.0.1", 1, false, true},
                    AddressCase{"longLoopback", "[::1]:9645", "::1", 9645, false, true},
                    AddressCase{"allAddresses", "0.0.0.0:80", "0.0.0.0", 80, false, false},
                    AddressCase{"allLongAddresses", "[::]:80", "::", 80, false, false},
                    AddressCase{"addressOfALink", "10.0.0.1:65535", "10.0.0.1", 65535, false,
                                false},
                    AddressCase{"path", "unix:/run/w.sock", "/run/w.sock", 0, true, true}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(WebAddress, isRefusedWithWhatIsWrong) {
  for (const char* text : {"", "127.0.0.1", ":80", "localhost:80", "127.0.0.1:", "127.0.0.1:65536",
                           "127.0.0.1:8x", "::1:80", "[::1]", "unix:", "unix:web.sock"}) {
    EXPECT_THROW(WebAddress::of(text), std::invalid_argument) << text;
  }
}

}  // namespace
}  // namespace Agent
