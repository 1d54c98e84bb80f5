#include <MoxBase/Text.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

#include <MoxBase/Types.h>
#include <gtest/gtest.h>

namespace Far {
struct Colour {
  int code;
};
void appendText(std::string& out, Colour colour) { out += colour.code == 1 ? "red" : "blue"; }
enum Plain { plainOne };
}  // namespace Far

namespace Mox {
namespace {

template <class T>
concept HasText = requires(std::string& out, T value) {
  appendText(out, value);
};

TEST(Text, stringsOfEveryKindAreThemselves) {
  const char* none = nullptr;
  EXPECT_EQ(textOf("literal"), "literal");
  EXPECT_EQ(textOf(std::string("string")), "string");
  EXPECT_EQ(textOf(std::string_view("view")), "view");
  EXPECT_EQ(textOf(none), "null");
}

TEST(Text, appendsBehindWhatIsThere) {
  std::string out = "a ";
  appendText(out, 7);
  EXPECT_EQ(out, "a 7");
}

TEST(Text, integersAreNumbersEvenWhenTheyAreBytes) {
  EXPECT_EQ(textOf(U8{65}), "65");
  EXPECT_EQ(textOf(-1), "-1");
  EXPECT_EQ(textOf(std::numeric_limits<S64>::min()), "-9223372036854775808");
  EXPECT_EQ(textOf(std::numeric_limits<U64>::max()), "18446744073709551615");
}

TEST(Text, aCharIsACharacter) { EXPECT_EQ(textOf('x'), "x"); }

TEST(Text, boolIsAWord) {
  EXPECT_EQ(textOf(true), "true");
  EXPECT_EQ(textOf(false), "false");
}

TEST(Text, integralDoublesHaveNoFraction) {
  EXPECT_EQ(textOf(260.0), "260");
  EXPECT_EQ(textOf(0.0), "0");
  EXPECT_EQ(textOf(-3.0), "-3");
  EXPECT_EQ(textOf(100000.0), "100000");
}

TEST(Text, doublesAreTheShortestThatReadsBack) {
  EXPECT_EQ(textOf(0.1), "0.1");
  EXPECT_EQ(textOf(0.1 + 0.2), "0.30000000000000004");
  EXPECT_EQ(textOf(1e300), "1e+300");
  EXPECT_EQ(textOf(1e-7), "1e-07");
}

TEST(Text, infinitiesAndNanAreWords) {
  EXPECT_EQ(textOf(never), "inf");
  EXPECT_EQ(textOf(-never), "-inf");
  EXPECT_EQ(textOf(std::numeric_limits<double>::quiet_NaN()), "nan");
  EXPECT_EQ(textOf(-std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(Text, everyFiniteDoubleReadsBackAsItself) {
  std::mt19937_64 random(20240229);
  for (int i = 0; i < 20000; ++i) {
    const double scale = std::ldexp(1.0, static_cast<int>(random() % 2000) - 1000);
    const double value = static_cast<double>(static_cast<S64>(random())) * scale;
    ASSERT_EQ(std::strtod(textOf(value).c_str(), nullptr), value) << "round " << i;
  }
}

TEST(Text, pointersAreAddresses) {
  const void* address = reinterpret_cast<const void*>(0xbeef);
  EXPECT_EQ(textOf(address), "0xbeef");
  EXPECT_EQ(textOf(static_cast<Far::Colour*>(nullptr)), "0x0");
}

TEST(Text, otherTypesBringTheirOwn) { EXPECT_EQ(textOf(Far::Colour{1}), "red"); }

TEST(Text, anEnumerationWithoutTextDoesNotBecomeANumber) {
  EXPECT_FALSE(HasText<Far::Plain>);
  EXPECT_TRUE(HasText<Far::Colour>);
}

}  // namespace
}  // namespace Mox
