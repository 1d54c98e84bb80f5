#include <Mox/AttrValue.h>

#include <array>
#include <functional>
#include <limits>
#include <string>

#include <Mox/Name.h>
#include <gtest/gtest.h>

#include "TestKey.h"

namespace Mox {
namespace {

enum Taste : U32 { sweet = 0, sour = 7 };
constexpr const char* enumerationName(Taste) { return "Test::Taste"; }
constexpr auto enumerators(Taste) {
  return std::array{enumerator(sweet, "sweet"), enumerator(sour, "sour")};
}
struct Shape {};

static_assert(valueKind<bool> == ValueKind::flag);
static_assert(valueKind<U8> == ValueKind::u32);
static_assert(valueKind<U32> == ValueKind::u32);
static_assert(valueKind<U64> == ValueKind::u64);
static_assert(valueKind<Taste> == ValueKind::u32);
static_assert(valueKind<TestKey> == ValueKind::u32);
static_assert(valueKind<double> == ValueKind::seconds);
static_assert(valueKind<Name> == ValueKind::text);
static_assert(valueKind<std::string> == ValueKind::text);
static_assert(!Valued<Shape>);

template <class T>
void expectRoundTrip(const T& typed, const Value& value) {
  EXPECT_EQ(valueFrom(typed), value);
  EXPECT_EQ(typedFrom<T>(value), typed);
}

TEST(AttrValueTest, eachTypeGoesThereAndBack) {
  expectRoundTrip(true, Value(true));
  expectRoundTrip(U8{255}, Value(U64{255}));
  expectRoundTrip(std::numeric_limits<U32>::max(), Value(U64{0xffffffffu}));
  expectRoundTrip(std::numeric_limits<U64>::max(), Value(~U64{0}));
  expectRoundTrip(sour, Value(U64{7}));
  expectRoundTrip(TestKey(9), Value(U64{9}));
  expectRoundTrip(-1.5, Value(-1.5));
  expectRoundTrip(std::numeric_limits<double>::infinity(),
                  Value(std::numeric_limits<double>::infinity()));
  expectRoundTrip(Name("vlan10"), Value(std::string("vlan10")));
  expectRoundTrip(std::string(), Value(std::string()));
}

TEST(AttrValueTest, enumeratorIsAlsoMadeOfItsName) {
  EXPECT_EQ(typedFrom<Taste>(Value(std::string("sour"))), sour);
}

std::string errorOf(const std::function<void()>& make) {
  try {
    make();
  } catch (const RangeError& error) {
    return error.what();
  }
  return "no error";
}

TEST(AttrValueTest, numberThatTheTypeDoesNotHaveIsARangeError) {
  EXPECT_EQ(errorOf([] { typedFrom<U8>(Value(U64{256})); }), "256 is too large");
  EXPECT_EQ(errorOf([] { typedFrom<U32>(Value(U64{1} << 32)); }), "4294967296 is too large");
  EXPECT_EQ(errorOf([] { typedFrom<TestKey>(Value(U64{1} << 32)); }), "4294967296 is too large");
  EXPECT_EQ(errorOf([] { typedFrom<Taste>(Value(U64{1})); }), "Test::Taste has no value 1");
  EXPECT_EQ(errorOf([] { typedFrom<Taste>(Value((U64{1} << 32) + 7)); }),
            "Test::Taste has no value 4294967303");
}

TEST(AttrValueTest, valueOfAnotherKindIsARangeError) {
  EXPECT_EQ(errorOf([] { typedFrom<bool>(Value(U64{1})); }), "the value is not a flag");
  EXPECT_EQ(errorOf([] { typedFrom<U32>(Value(1.0)); }), "the value is not a whole number");
  EXPECT_EQ(errorOf([] { typedFrom<TestKey>(Value(true)); }), "the value is not a whole number");
  EXPECT_EQ(errorOf([] { typedFrom<double>(Value(U64{1})); }),
            "the value is not a number of seconds");
  EXPECT_EQ(errorOf([] { typedFrom<Name>(Value(U64{1})); }), "the value is not a text");
  EXPECT_EQ(errorOf([] { typedFrom<Taste>(Value(1.0)); }),
            "Test::Taste is made of a number or a name");
  EXPECT_EQ(errorOf([] { typedFrom<bool>(Value()); }), "the value is not a flag");
}

}  // namespace
}  // namespace Mox
