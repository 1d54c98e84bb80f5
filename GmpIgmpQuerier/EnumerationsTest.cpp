#include <GmpIgmpQuerier/Enumerations.h>

#include <sstream>
#include <string>
#include <vector>

#include <GmpIgmpQuerier/QuerierStatus.h>
#include <GmpIgmpQuerier/RecordType.h>
#include <MoxBase/Text.h>
#include <gtest/gtest.h>

namespace Gmp::Igmp {
namespace {

template <class T>
std::string streamed(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

struct NumberAndName {
  U32 number;
  std::string name;
};

// An enumeration with its two instance functions.
template <class E, E (*fromNumber)(unsigned), E (*fromName)(std::string_view)>
void expectExactly(const char* typeName, const std::vector<NumberAndName>& expected) {
  EXPECT_STREQ(enumerationName(E{}), typeName);
  ASSERT_EQ(enumerators(E{}).size(), expected.size());
  for (const auto& [number, name] : expected) {
    SCOPED_TRACE(name);
    const E value = fromNumber(number);
    EXPECT_EQ(static_cast<U32>(value), number);
    EXPECT_EQ(fromName(name), value);
    EXPECT_EQ(stringValue(value), name);
    EXPECT_EQ(valueToStrep(value), "'" + name + "'");
    EXPECT_EQ(streamed(value), name);
    EXPECT_EQ(Mox::textOf(value), name);
    E converted{};
    sequenceToValue(Mox::Value(U64{number}), converted);
    EXPECT_EQ(converted, value);
    converted = E{};
    sequenceToValue(Mox::Value(name), converted);
    EXPECT_EQ(converted, value);
  }
  const U32 unknown = static_cast<U32>(expected.size());
  EXPECT_THROW(fromNumber(unknown), Mox::RangeError);
  EXPECT_THROW(fromName("unknown"), Mox::RangeError);
  EXPECT_THROW(fromName(""), Mox::RangeError);
  E untouched = fromNumber(expected.back().number);
  EXPECT_THROW(sequenceToValue(Mox::Value(true), untouched), Mox::RangeError);
  EXPECT_EQ(static_cast<U32>(untouched), expected.back().number);
  EXPECT_EQ(stringValue(static_cast<E>(unknown)), std::to_string(unknown));
}

TEST(Enumerations, versionsHaveTheNumbersOfTheProtocol) {
  expectExactly<IgmpVersion, IgmpVersionInstance, IgmpVersionInstance>(
      "Gmp::Igmp::IgmpVersion",
      {{0, "igmpVersionUnknown"}, {1, "igmpVersion1"}, {2, "igmpVersion2"}, {3, "igmpVersion3"}});
}

TEST(Enumerations, filterModesBeginWithExclude) {
  expectExactly<IgmpFilterMode, IgmpFilterModeInstance, IgmpFilterModeInstance>(
      "Gmp::Igmp::IgmpFilterMode", {{0, "filterModeExclude"}, {1, "filterModeInclude"}});
}

TEST(Enumerations, timerStatesBeginWithDisabled) {
  expectExactly<TimerState, TimerStateInstance, TimerStateInstance>(
      "Gmp::Igmp::TimerState", {{0, "timerDisabled"}, {1, "timerRunning"}, {2, "timerExpired"}});
}

TEST(Enumerations, querierStatesBeginWithInitial) {
  expectExactly<QuerierStatus::QuerierState, QuerierStatus::QuerierStateInstance,
                QuerierStatus::QuerierStateInstance>(
      "Gmp::Igmp::QuerierStatus::QuerierState",
      {{0, "querierStateInitial"}, {1, "querierStateQuerier"}, {2, "querierStateNonQuerier"}});
}

TEST(Enumerations, instancesAreMadeOfPlainNumbersAndLiterals) {
  EXPECT_EQ(IgmpVersionInstance(3), igmpVersion3);
  EXPECT_EQ(IgmpVersionInstance(0), igmpVersionUnknown);
  EXPECT_EQ(IgmpVersionInstance("igmpVersion3"), igmpVersion3);
  EXPECT_EQ(QuerierStatus::QuerierStateInstance("querierStateNonQuerier"), 2u);
}

TEST(Enumerations, versionsCompareLikeTheirNumbers) {
  EXPECT_LT(igmpVersion1, igmpVersion2);
  EXPECT_EQ(igmpVersion3, 3u);
}

TEST(Enumerations, areStoredIn32Bits) {
  static_assert(sizeof(IgmpVersion) == 4 && sizeof(IgmpFilterMode) == 4);
  static_assert(sizeof(TimerState) == 4 && sizeof(QuerierStatus::QuerierState) == 4);
  EXPECT_EQ(static_cast<IgmpFilterMode>(0), filterModeExclude);
}

TEST(RecordType, isItsByte) {
  EXPECT_EQ(RecordType(2).value(), 2);
  EXPECT_EQ(RecordType().value(), 0);
  EXPECT_EQ(RecordType(255).value(), 255);
}

TEST(RecordType, comparesByItsByte) {
  EXPECT_EQ(RecordType(2), RecordType(2));
  EXPECT_NE(RecordType(2), RecordType(3));
  EXPECT_TRUE(RecordType(2) < RecordType(3));
  EXPECT_FALSE(RecordType(3) < RecordType(2));
  EXPECT_FALSE(RecordType(2) < RecordType(2));
  EXPECT_TRUE(RecordType(127) < RecordType(128));
}

TEST(RecordType, printsAsADecimalNumber) {
  EXPECT_EQ(valueToStrep(RecordType(2)), "2");
  EXPECT_EQ(stringValue(RecordType(255)), "255");
  EXPECT_EQ(streamed(RecordType(65)), "65");
  EXPECT_EQ(Mox::textOf(RecordType(0)), "0");
}

}  // namespace
}  // namespace Gmp::Igmp
