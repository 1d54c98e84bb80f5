// Requests that end groups.
#include "RequestSession.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RequestTestSupport.h"

namespace Agent {
namespace {

using testing::HasSubstr;
using Rights = Mox::NboAttrLog::Rights;

class ClearGroupsTest : public testing::Test {
 protected:
  std::string answerTo(const std::string& request, Rights rights = Rights::configure) {
    RequestSession session(services_, rights);
    session.in(request + "\n");
    return std::string(session.out());
  }

  RequestAgent agent_;
  const RequestServices services_ = agent_.services();
};

TEST_F(ClearGroupsTest, endsThoseOfAllInterfacesOfOneOrOneGroup) {
  EXPECT_EQ(answerTo(R"({"op":"clearGroups"})"), "{\"groups\":3}\n");
  EXPECT_EQ(agent_.cleared(), " all");
  answerTo(R"({"op":"clearGroups","interface":"eth0"})");
  EXPECT_EQ(agent_.cleared(), "eth0 all");
  answerTo(R"({"op":"clearGroups","interface":"eth0","group":"239.1.1.1"})");
  EXPECT_EQ(agent_.cleared(), "eth0 239.1.1.1");
}

TEST_F(ClearGroupsTest, endsNoneByMistake) {
  EXPECT_THAT(answerTo(R"({"op":"clearGroups","interface":"eth7"})"),
              HasSubstr("the agent has no interface eth7"));
  EXPECT_THAT(answerTo(R"({"op":"clearGroups","group":"all"})"),
              HasSubstr("all is no IPv4 address such as 239.1.1.1"));
  EXPECT_EQ(agent_.cleared(), "");
}

TEST_F(ClearGroupsTest, failWithTheReasonWhereNoneCanEndNow) {
  RequestServices services = services_;
  services.clearGroups = [](const std::string&, std::optional<Ilvo::IpAddr>) -> size_t {
    throw std::runtime_error("not now");
  };
  RequestSession session(services, Rights::configure);
  session.in("{\"op\":\"clearGroups\"}\n");
  EXPECT_THAT(std::string(session.out()), HasSubstr("\"error\":\"not now\""));
}

TEST_F(ClearGroupsTest, needsTheRightToConfigure) {
  EXPECT_THAT(answerTo(R"({"op":"clearGroups"})", Rights::read),
              HasSubstr("not permitted to clear groups"));
  EXPECT_EQ(agent_.cleared(), "");
}

}  // namespace
}  // namespace Agent
