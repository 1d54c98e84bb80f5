#include <Web/WebHosts.h>

#include <gtest/gtest.h>

namespace Agent {
namespace {

struct HostCase {
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
    testing::Values(HostCase{"localhost", true}, HostCase{"LocalHost:9645", true},
                    HostCase{"127.0.0.1:9645", true}, HostCase{"10.0.0.1", true},
                    HostCase{"[::1]", true}, HostCase{"[::1]:9645", true},
                    HostCase{"querier.EXAMPLE:80", true}, HostCase{"", false},
                    HostCase{"other.example", false}, HostCase{"localhost.example", false},
                    HostCase{"localhost:", true}, HostCase{"localhost:80x", false},
                    HostCase{"localhost:123456", false}, HostCase{"127.0.0.1.example", false},
                    HostCase{"[::1", false}, HostCase{"[]", false}, HostCase{"[::1]x", false},
                    HostCase{"::1", false}, HostCase{"2130706433", false},
                    HostCase{"localhost:80:80", false}),
    [](const auto& instance) { return std::to_string(instance.index); });

}  // namespace
}  // namespace Agent
