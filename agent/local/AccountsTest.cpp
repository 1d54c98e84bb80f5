#include <Local/Accounts.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

TEST(Accounts, knownOnesAreFoundByName) {
  const auto root = userNamed("root");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->id, 0u);
  EXPECT_EQ(root->group, 0u);
  EXPECT_THAT(root->groups, testing::Contains(0u));
  EXPECT_EQ(groupNamed("root"), 0u);
}

TEST(Accounts, unknownOnesAreNot) {
  EXPECT_FALSE(userNamed("no-such-user-here"));
  EXPECT_FALSE(groupNamed("no-such-group-here"));
  EXPECT_FALSE(userNamed(""));
}

TEST(Accounts, aUserIsNamedByItsNumberWhereItHasNoName) {
  EXPECT_EQ(userName(0), "root");
  EXPECT_EQ(userName(4000000000), "4000000000");
}

}  // namespace
}  // namespace Agent
