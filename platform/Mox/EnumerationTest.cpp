#include <Mox/Enumeration.h>

#include <string>

#include <gtest/gtest.h>

namespace Meadow {

enum Season : Mox::U32 { spring = 1, autumn = 3 };
constexpr const char* enumerationName(Season) { return "Meadow::Season"; }
constexpr auto enumerators(Season) {
  return std::array{Mox::enumerator(spring, "spring"), Mox::enumerator(autumn, "autumn")};
}

// Nested, as an entity's own state is.
struct Tree {
  enum class Leaves : Mox::U32 { none, green };
};
constexpr const char* enumerationName(Tree::Leaves) { return "Meadow::Tree::Leaves"; }
constexpr auto enumerators(Tree::Leaves) {
  return std::array{Mox::enumerator(Tree::Leaves::none, "none"),
                    Mox::enumerator(Tree::Leaves::green, "green")};
}

enum Plain : Mox::U32 { plain };

}  // namespace Meadow

namespace Mox {
namespace {

using Meadow::Season;
using Meadow::Tree;

// The text of the RangeError that the call throws; empty when it throws none.
template <class F>
std::string rangeErrorOf(F call) {
  try {
    call();
  } catch (const RangeError& e) {
    return e.what();
  }
  return {};
}

TEST(Enumeration, isWhatHasAListAndAName) {
  static_assert(Enumeration<Season>);
  static_assert(Enumeration<Tree::Leaves>);
  static_assert(!Enumeration<Meadow::Plain>);
  static_assert(!Enumeration<U32>);
}

TEST(Enumeration, isMadeFromItsNumber) {
  EXPECT_EQ(enumeratorOf<Season>(3), Meadow::autumn);
  EXPECT_EQ(enumeratorOf<Tree::Leaves>(0), Tree::Leaves::none);
}

TEST(Enumeration, isMadeFromItsName) {
  EXPECT_EQ(enumeratorOf<Season>("spring"), Meadow::spring);
  EXPECT_EQ(enumeratorOf<Tree::Leaves>("green"), Tree::Leaves::green);
}

TEST(Enumeration, refusesAnUnknownNumber) {
  EXPECT_EQ(rangeErrorOf([] { enumeratorOf<Season>(2); }), "Meadow::Season has no value 2");
}

TEST(Enumeration, refusesAnUnknownName) {
  EXPECT_EQ(rangeErrorOf([] { enumeratorOf<Season>("Spring"); }),
            "Meadow::Season has no value 'Spring'");
  EXPECT_EQ(rangeErrorOf([] { enumeratorOf<Season>(""); }), "Meadow::Season has no value ''");
}

TEST(Enumeration, hasATextForEveryNumber) {
  EXPECT_STREQ(enumeratorName(Meadow::autumn), "autumn");
  EXPECT_EQ(enumeratorText(Meadow::autumn), "autumn");
  EXPECT_EQ(enumeratorName(static_cast<Season>(2)), nullptr);
  EXPECT_EQ(enumeratorText(static_cast<Season>(2)), "2");
}

TEST(Enumeration, standsQuotedInADump) {
  EXPECT_EQ(enumeratorStrep(Meadow::autumn), "'autumn'");
  EXPECT_EQ(enumeratorStrep(static_cast<Season>(2)), "'2'");
}

TEST(Enumeration, isMadeFromAValueThatIsANumberOrAName) {
  EXPECT_EQ(enumeratorFrom<Season>(Value(U64{3})), Meadow::autumn);
  EXPECT_EQ(enumeratorFrom<Season>(Value(std::string("spring"))), Meadow::spring);
}

TEST(Enumeration, refusesAValueOfAnyOtherKind) {
  const std::string kind = "Meadow::Season is made of a number or a name";
  EXPECT_EQ(rangeErrorOf([] { enumeratorFrom<Season>(Value()); }), kind);
  EXPECT_EQ(rangeErrorOf([] { enumeratorFrom<Season>(Value(true)); }), kind);
  EXPECT_EQ(rangeErrorOf([] { enumeratorFrom<Season>(Value(3.0)); }), kind);
}

TEST(Enumeration, doesNotCutALargeNumberDownToOneThatItKnows) {
  EXPECT_EQ(rangeErrorOf([] { enumeratorFrom<Season>(Value(U64{0x100000003})); }),
            "Meadow::Season has no value 4294967299");
}

}  // namespace
}  // namespace Mox
