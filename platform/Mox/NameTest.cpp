#include <Mox/Name.h>

#include <string>

#include <MoxBase/Text.h>
#include <gtest/gtest.h>

namespace Mox {
namespace {

TEST(Name, equalTextsAreOneName) {
  const std::string text = "vlan10";
  const Name a(text);
  const Name b("vlan10");
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.c_str(), b.c_str()) << "the text is stored once";
  EXPECT_NE(a, Name("vlan1"));
}

TEST(Name, isEmptyUnlessGivenAText) {
  const Name none;
  EXPECT_TRUE(none.empty());
  EXPECT_STREQ(none.c_str(), "");
  EXPECT_EQ(none, Name(""));
  EXPECT_FALSE(Name("x").empty());
}

TEST(Name, isMadeOfAPartOfAText) {
  const std::string_view line = "vlan10 up";
  EXPECT_EQ(Name(line.substr(0, 6)), Name("vlan10"));
}

TEST(Name, outlivesTheTextItWasMadeOf) {
  Name name;
  {
    const std::string text(100, 'x');
    name = text;
  }
  EXPECT_EQ(name.string(), std::string(100, 'x'));
  EXPECT_EQ(name.view().size(), 100u);
}

TEST(Name, staysWhereItIsWhileOthersAreAdded) {
  const Name first("eth-first");
  const char* text = first.c_str();
  for (int i = 0; i < 1000; ++i) Name("eth" + std::to_string(i));
  EXPECT_EQ(Name("eth-first").c_str(), text);
  EXPECT_STREQ(text, "eth-first");
}

TEST(Name, isOrderedByItsText) {
  EXPECT_LT(Name("eth1"), Name("eth2"));
  EXPECT_LT(Name("eth10"), Name("eth2"));
  EXPECT_LT(Name(), Name("a"));
  EXPECT_GE(Name("b"), Name("b"));
}

TEST(Name, printsAsItsText) {
  EXPECT_EQ(textOf(Name("vlan10")), "vlan10");
  EXPECT_EQ(textOf(Name()), "");
}

}  // namespace
}  // namespace Mox
