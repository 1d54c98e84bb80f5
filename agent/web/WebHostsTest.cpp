#include <Web/WebHosts.h>

#include <gtest/gtest.h>

namespace Agent {
namespace {

struct HostCase {
  const char* name;
  const char* host;
  bool isAccepted;
};

class WebHostsTest : public testing::TestWithParam<HostCase> {};

TEST_P(WebHostsTest, acceptAddressesAndNamesOfTheirOwn) {
  const WebHosts hosts({"Querier.example"});
  EXPECT_EQ(hosts.isAccepted(GetParam().host), GetParam().isAccepted) << GetParam().host;
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, WebHostsTest,
    testing::Values(HostCase{"localhost", "localhost", true},
                    HostCase{"localhostWithPort", "LocalHost:9645", true},
                    HostCase{"loopback", "127.0.0.1:9645", true},
                    HostCase{"address", "10.0.0.1", true}, HostCase{"longAddress", "[::1]", true},
                    HostCase{"longAddressWithPort", "[::1]:9645", true},
                    HostCase{"ownNameInAnyCase", "querier.EXAMPLE:80", true},
                    HostCase{"empty", "", false}, HostCase{"otherName", "other.example", false},
                    HostCase{"nameThatBeginsLikeIt", "localhost.example", false},
                    HostCase{"emptyPort", "localhost:", true},
                    HostCase{"portWithLetters", "localhost:80x", false},
                    HostCase{"portOfSixDigits", "localhost:123456", false},
                    HostCase{"nameThatBeginsLikeAnAddress", "127.0.0.1.example", false},
                    HostCase{"openBracket", "[::1", false}, HostCase{"emptyBrackets", "[]", false},
                    HostCase{"textBehindBrackets", "[::1]x", false},
                    HostCase{"longAddressWithoutBrackets", "::1", false},
                    HostCase{"number", "2130706433", false},
                    HostCase{"twoPorts", "localhost:80:80", false}),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace Agent
