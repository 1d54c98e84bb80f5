#include "WebTarget.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(WebTarget, isTakenApart) {
  const auto target = webTarget("/api/v1/interfaces/eth0/groups?from=239.1.1.1&limit=10");
  ASSERT_TRUE(target);
  EXPECT_THAT(target->path, ElementsAre("api", "v1", "interfaces", "eth0", "groups"));
  EXPECT_THAT(target->query, ElementsAre(Pair("from", "239.1.1.1"), Pair("limit", "10")));
}

TEST(WebTarget, ofTheRootHasNoSegments) {
  const auto target = webTarget("/");
  ASSERT_TRUE(target);
  EXPECT_THAT(target->path, IsEmpty());
}

TEST(WebTarget, isDecodedOnce) {
  const auto target = webTarget("/a%62%c3%a9/%2525?k%3d=%26&flag");
  ASSERT_TRUE(target);
  EXPECT_THAT(target->path, ElementsAre("ab\xc3\xa9", "%25"));
  EXPECT_THAT(target->query, ElementsAre(Pair("flag", ""), Pair("k=", "&")));
}

TEST(WebTarget, mayEndWithASlash) {
  const auto target = webTarget("/api/");
  ASSERT_TRUE(target);
  EXPECT_THAT(target->path, ElementsAre("api"));
}

struct TargetCase {
  const char* name;
  const char* target;
};

class WrongWebTargetTest : public testing::TestWithParam<TargetCase> {};

TEST_P(WrongWebTargetTest, isRefused) { EXPECT_FALSE(webTarget(GetParam().target)); }

INSTANTIATE_TEST_SUITE_P(
    Targets, WrongWebTargetTest,
    testing::Values(TargetCase{"empty", ""}, TargetCase{"star", "*"}, TargetCase{"relative", "api"},
                    TargetCase{"absoluteForm", "http://host/api"}, TargetCase{"bareCode", "/%"},
                    TargetCase{"shortCode", "/%4"}, TargetCase{"codeWithALetter", "/%4g"},
                    TargetCase{"codeWithABlank", "/% 1"}, TargetCase{"codeWithASign", "/%+1"},
                    TargetCase{"codedZero", "/a%00b"}, TargetCase{"codedLineEnd", "/a%0ab"},
                    TargetCase{"controlCharacter", "/a\x7f"}, TargetCase{"parent", "/.."},
                    TargetCase{"parentWithin", "/api/../page"},
                    TargetCase{"codedParent", "/%2e%2e/page"}, TargetCase{"self", "/./page"},
                    TargetCase{"twoSlashesFirst", "//host"}, TargetCase{"emptySegment", "/api//v1"},
                    TargetCase{"codedSlash", "/a%2fb"}, TargetCase{"keyTwice", "/page?a=1&a=2"},
                    TargetCase{"wrongCodeInTheQuery", "/page?a=%zz"}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(WebTarget, isRefusedBeyondItsLength) {
  EXPECT_TRUE(webTarget("/" + std::string(WebTarget::mostBytes - 1, 'a')));
  EXPECT_FALSE(webTarget("/" + std::string(WebTarget::mostBytes, 'a')));
}

}  // namespace
}  // namespace Agent
