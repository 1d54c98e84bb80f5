#include <Ilvo/IpAddr.h>

#include <string>
#include <type_traits>
#include <unordered_set>

#include <gtest/gtest.h>

namespace Ilvo {
namespace {

static_assert(std::is_trivially_copyable_v<IpAddr> && sizeof(IpAddr) == 4);
static_assert(IpAddr(10, 0, 0, 1).value() == 0x0a000001);
static_assert(IpAddr::ipAddrZero() == IpAddr() && IpAddr().isZero());

struct KindCase {
  const char* name;
  IpAddr addr;
  bool multicast;
  bool reserved;
  bool unicast;
};
class IpAddrKindTest : public testing::TestWithParam<KindCase> {};

TEST_P(IpAddrKindTest, isRecognised) {
  const KindCase& c = GetParam();
  EXPECT_EQ(c.addr.isMulticast(), c.multicast);
  EXPECT_EQ(c.addr.isReservedMulticast(), c.reserved);
  EXPECT_EQ(c.addr.isUnicast(), c.unicast);
}

INSTANTIATE_TEST_SUITE_P(
    Edges, IpAddrKindTest,
    testing::Values(KindCase{"zero", IpAddr(), false, false, true},
                    KindCase{"host", IpAddr(10, 0, 0, 1), false, false, true},
                    KindCase{"lastBeforeMulticast", IpAddr(223, 255, 255, 255), false, false, true},
                    KindCase{"firstReserved", IpAddr(224, 0, 0, 0), true, true, false},
                    KindCase{"lastReserved", IpAddr(224, 0, 0, 255), true, true, false},
                    KindCase{"firstRoutable", IpAddr(224, 0, 1, 0), true, false, false},
                    KindCase{"otherBlock", IpAddr(225, 0, 0, 1), true, false, false},
                    KindCase{"lastMulticast", IpAddr(239, 255, 255, 255), true, false, false},
                    KindCase{"firstClassE", IpAddr(240, 0, 0, 0), false, false, false},
                    KindCase{"broadcast", IpAddr(255, 255, 255, 255), false, false, false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(IpAddr, ordersAsItReads) {
  EXPECT_LT(IpAddr(9, 255, 255, 255), IpAddr(10, 0, 0, 0));
  EXPECT_LT(IpAddr(10, 0, 0, 1), IpAddr(200, 0, 0, 0));
  EXPECT_EQ(IpAddr(10, 0, 0, 1), IpAddr(0x0a000001));
  EXPECT_NE(IpAddr(10, 0, 0, 1), IpAddr(10, 0, 0, 2));
}

TEST(IpAddr, isAKeyOfHashedContainers) {
  const std::unordered_set<IpAddr> set = {IpAddr(1, 2, 3, 4), IpAddr(1, 2, 3, 5)};
  EXPECT_TRUE(set.contains(IpAddr(1, 2, 3, 5)));
  EXPECT_FALSE(set.contains(IpAddr(1, 2, 3, 6)));
}

TEST(IpAddr, parsesWhatItPrints) {
  for (const char* text : {"0.0.0.0", "10.0.0.1", "192.168.100.9", "255.255.255.255"}) {
    const std::optional<IpAddr> addr = IpAddr::parse(text);
    ASSERT_TRUE(addr) << text;
    EXPECT_EQ(addr->stringValue(), text);
  }
  EXPECT_EQ(IpAddr::parse("10.20.30.40"), IpAddr(10, 20, 30, 40));
}

TEST(IpAddr, parsesNothingElse) {
  for (const char* text :
       {"",           ".",          "1",         "1.2",       "1.2.3",     "1.2.3.",
        ".1.2.3",     "1..2.3",     "1.2.3.4.",  "1.2.3.4.5", "1.2.3.256", "256.2.3.4",
        "1.2.3.1000", "01.2.3.4",   "1.2.3.00",  "1.2.3.+4",  "1.2.3.-4",  " 1.2.3.4",
        "1.2.3.4 ",   "1.2.3.4/32", "0x1.2.3.4", "a.b.c.d",   "1,2,3,4"}) {
    EXPECT_FALSE(IpAddr::parse(text)) << "'" << text << "'";
  }
  EXPECT_FALSE(IpAddr::parse(std::string_view("1.2.3.4\0", 8)));
}

TEST(IpAddr, appendsItsTextToWhatIsThere) {
  std::string out = "from ";
  appendText(out, IpAddr(255, 255, 255, 255));
  EXPECT_EQ(out, "from 255.255.255.255");
}

TEST(IpAddr, isQuotedInValueDumps) { EXPECT_EQ(valueToStrep(IpAddr(10, 0, 0, 1)), "'10.0.0.1'"); }

}  // namespace
}  // namespace Ilvo
