#include <Ilvo/IpPrefix.h>

#include <set>
#include <string>

#include <gtest/gtest.h>

namespace Ilvo {
namespace {

IpGenPrefix prefix(std::string_view text) { return IpGenPrefix::parse(text).value(); }
Ip6Addr addr6(std::string_view text) { return Ip6Addr::parse(text).value(); }

struct ContainsCase {
  const char* name;
  const char* prefix;
  IpAddr addr;
  bool inside;
};
class Ipv4ContainsTest : public testing::TestWithParam<ContainsCase> {};

TEST_P(Ipv4ContainsTest, contains) {
  EXPECT_EQ(prefix(GetParam().prefix).contains(GetParam().addr), GetParam().inside);
}

INSTANTIATE_TEST_SUITE_P(
    Edges, Ipv4ContainsTest,
    testing::Values(
        ContainsCase{"lengthZeroHasTheFirst", "0.0.0.0/0", IpAddr(), true},
        ContainsCase{"lengthZeroHasTheLast", "0.0.0.0/0", IpAddr(255, 255, 255, 255), true},
        ContainsCase{"lengthOneLow", "0.0.0.0/1", IpAddr(127, 255, 255, 255), true},
        ContainsCase{"lengthOneHigh", "0.0.0.0/1", IpAddr(128, 0, 0, 0), false},
        ContainsCase{"first", "239.0.0.0/8", IpAddr(239, 0, 0, 0), true},
        ContainsCase{"last", "239.0.0.0/8", IpAddr(239, 255, 255, 255), true},
        ContainsCase{"below", "239.0.0.0/8", IpAddr(238, 255, 255, 255), false},
        ContainsCase{"above", "239.0.0.0/8", IpAddr(240, 0, 0, 0), false},
        ContainsCase{"acrossABytesEdge", "239.1.16.0/20", IpAddr(239, 1, 31, 255), true},
        ContainsCase{"pastABytesEdge", "239.1.16.0/20", IpAddr(239, 1, 32, 0), false},
        ContainsCase{"length31", "239.1.1.2/31", IpAddr(239, 1, 1, 3), true},
        ContainsCase{"host", "239.1.1.1/32", IpAddr(239, 1, 1, 1), true},
        ContainsCase{"hostOnly", "239.1.1.1/32", IpAddr(239, 1, 1, 0), false},
        ContainsCase{"withoutLengthAHost", "239.1.1.1", IpAddr(239, 1, 1, 2), false},
        ContainsCase{"hostBitsIgnored", "239.1.2.3/8", IpAddr(239, 9, 9, 9), true},
        ContainsCase{"otherFamilyNever", "::/0", IpAddr(239, 1, 1, 1), false},
        ContainsCase{"mappedNever", "::ffff:239.1.1.1/128", IpAddr(239, 1, 1, 1), false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(IpGenPrefix, ofIpv6ContainsIpv6Only) {
  EXPECT_TRUE(prefix("2001:db8::/32").contains(addr6("2001:db8:ffff::1")));
  EXPECT_FALSE(prefix("2001:db8::/32").contains(addr6("2001:db9::")));
  EXPECT_TRUE(prefix("2001:db8::/29").contains(addr6("2001:dbf::")));
  EXPECT_FALSE(prefix("2001:db8::/29").contains(addr6("2001:dc0::")));
  EXPECT_TRUE(prefix("ff0e::1").contains(addr6("ff0e::1")));
  EXPECT_FALSE(prefix("ff0e::1").contains(addr6("ff0e::")));
  EXPECT_TRUE(prefix("::/0").contains(addr6("ffff::")));
  EXPECT_FALSE(prefix("0.0.0.0/0").contains(addr6("::")));
}

TEST(IpGenPrefix, dropsHostBitsSoThatOnePrefixIsOneKey) {
  EXPECT_EQ(prefix("10.1.2.3/8"), prefix("10.0.0.0/8"));
  EXPECT_EQ(IpGenPrefix(IpAddr(10, 1, 2, 3), 0), IpGenPrefix());
  EXPECT_EQ(prefix("2001:db8:7::1/33"), prefix("2001:db8::/33"));
  EXPECT_NE(prefix("10.0.0.0/8"), prefix("10.0.0.0/9"));
  EXPECT_NE(prefix("0.0.0.0/0"), prefix("::/0"));
}

TEST(IpGenPrefix, ordersIpv4FirstThenByAddressThenByLength) {
  const std::set<IpGenPrefix> set = {prefix("::/0"), prefix("239.0.0.0/8"), prefix("224.0.0.0/8"),
                                     prefix("224.0.0.0/4"), prefix("ff00::/8")};
  std::string order;
  for (const IpGenPrefix& p : set) {
    order += p.stringValue() + " ";
  }
  EXPECT_EQ(order, "224.0.0.0/4 224.0.0.0/8 239.0.0.0/8 ::/0 ff00::/8 ");
}

TEST(IpGenPrefix, printsItsLengthAlways) {
  EXPECT_EQ(prefix("239.1.1.1").stringValue(), "239.1.1.1/32");
  EXPECT_EQ(prefix("2001:0db8::1").stringValue(), "2001:db8::1/128");
  EXPECT_EQ(IpGenPrefix().stringValue(), "0.0.0.0/0");
  EXPECT_EQ(valueToStrep(prefix("239.0.0.0/8")), "'239.0.0.0/8'");
  std::string out = "in ";
  appendText(out, prefix("239.0.0.0/8"));
  EXPECT_EQ(out, "in 239.0.0.0/8");
}

TEST(IpGenPrefix, parsesNothingElse) {
  for (const char* text :
       {"", "/", "/8", "239.0.0.0/", "239.0.0.0/33", "239.0.0.0/08", "239.0.0.0/+8", "239.0.0.0/-1",
        "239.0.0.0/8 ", "239.0.0.0/8/8", "239.0.0.0/255.0.0.0", "239/8", "2001:db8::/129",
        "2001:db8::/1280", "2001:db8::/", "2001:db8::%eth0/64", "[::]/0", "::1::/64",
        "12345::/16"}) {
    EXPECT_FALSE(IpGenPrefix::parse(text)) << "'" << text << "'";
  }
  EXPECT_FALSE(IpGenPrefix::parse(std::string_view("::1\0x", 5)));
}

TEST(IpGenPrefixDeathTest, longerThanItsAddressIsFatal) {
  EXPECT_DEATH(IpGenPrefix(IpAddr(), 33), "length <= 32");
  EXPECT_DEATH(IpGenPrefix(Ip6Addr(), 129), "length <= 128");
}

}  // namespace
}  // namespace Ilvo
