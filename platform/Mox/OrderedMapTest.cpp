#include <Mox/OrderedMap.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <MoxBase/Ptr.h>
#include <gtest/gtest.h>

#include "MapTestSupport.h"
#include "TestKey.h"

namespace Mox {
namespace {

using OrderedText = OrderedMap<TestKey, std::string>;
using Keys = std::vector<U32>;

Keys keysOf(const OrderedText& map) {
  Keys keys;
  for (auto at = map.begin(); at != map.end(); ++at) keys.push_back(at.key().value());
  return keys;
}

void insertAll(OrderedText& map, const Keys& keys) {
  for (const U32 key : keys) map.insert(TestKey(key), std::to_string(key));
}

// first, first + step, ...: `count` keys.
Keys series(U32 first, U32 step, U32 count) {
  Keys keys;
  for (U32 i = 0; i < count; ++i) keys.push_back(first + i * step);
  return keys;
}

using OrderedEnd = OrderedMap<TestKey, Ptr<AtEnd>>;

TEST(OrderedMap, hasNothingAtFirst) {
  const OrderedText map;
  EXPECT_EQ(map.size(), 0u);
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.find(TestKey(0)), nullptr);
  EXPECT_TRUE(map.begin() == map.end());
  EXPECT_TRUE(map.lowerBound(TestKey(0)) == map.end());
  EXPECT_TRUE(map.upperBound(TestKey(0)) == map.end());
}

TEST(OrderedMap, iteratesInKeyOrderHoweverItWasFilled) {
  OrderedText map;
  insertAll(map, {9, 3, 0xffffffffu, 0, 5});
  EXPECT_EQ(keysOf(map), (Keys{0, 3, 5, 9, 0xffffffffu}));
  EXPECT_EQ(*map.begin(), "0");
}

TEST(OrderedMap, findsWhatWasInserted) {
  OrderedText map;
  EXPECT_TRUE(map.insert(TestKey(0), "zero"));
  EXPECT_TRUE(map.insert(TestKey(7), "seven"));
  EXPECT_EQ(*map.find(TestKey(0)), "zero");
  EXPECT_EQ(*map.find(TestKey(7)), "seven");
  EXPECT_EQ(map.find(TestKey(6)), nullptr);
  EXPECT_EQ(map.find(TestKey(8)), nullptr);
}

TEST(OrderedMap, insertingAnExistingKeyReplacesItsValue) {
  OrderedText map;
  map.insert(TestKey(7), "seven");
  EXPECT_FALSE(map.insert(TestKey(7), "sept"));
  EXPECT_EQ(*map.find(TestKey(7)), "sept");
  EXPECT_EQ(map.size(), 1u);
}

TEST(OrderedMap, erasesOnlyWhatIsThere) {
  OrderedText map;
  EXPECT_FALSE(map.erase(TestKey(7)));
  insertAll(map, {6, 7, 8});
  EXPECT_FALSE(map.erase(TestKey(5)));
  EXPECT_TRUE(map.erase(TestKey(7)));
  EXPECT_FALSE(map.erase(TestKey(7)));
  EXPECT_EQ(keysOf(map), (Keys{6, 8}));
}

// Big enough for a tree of three levels in each of these orders.
TEST(OrderedMap, growsInAnyOrderOfInsertion) {
  const Keys ascending = series(0, 1, 5000);
  OrderedText up;
  insertAll(up, ascending);
  EXPECT_EQ(keysOf(up), ascending);
  OrderedText down;
  insertAll(down, Keys(ascending.rbegin(), ascending.rend()));
  EXPECT_EQ(keysOf(down), ascending);
  OrderedText mixed;
  for (U32 i = 0; i < 5000; ++i) mixed.insert(TestKey(i * 1237 % 5000), "");
  EXPECT_EQ(keysOf(mixed), ascending);
}

TEST(OrderedMap, canBeEmptiedFromEitherEndAndFilledAgain) {
  const Keys keys = series(0, 1, 3000);
  OrderedText map;
  insertAll(map, keys);
  for (const U32 key : keys) ASSERT_TRUE(map.erase(TestKey(key)));
  EXPECT_TRUE(map.begin() == map.end());
  insertAll(map, keys);
  for (U32 key = 3000; key-- > 0;) ASSERT_TRUE(map.erase(TestKey(key)));
  EXPECT_TRUE(map.empty());
  insertAll(map, {2, 1});
  EXPECT_EQ(keysOf(map), (Keys{1, 2}));
}

TEST(OrderedMap, takesSmallerKeysAfterTheSmallestOnesWent) {
  OrderedText map;
  insertAll(map, series(1000, 1, 2000));
  for (U32 key = 1000; key < 2500; ++key) map.erase(TestKey(key));
  insertAll(map, series(500, 1, 100));
  Keys expected = series(500, 1, 100);
  const Keys rest = series(2500, 1, 500);
  expected.insert(expected.end(), rest.begin(), rest.end());
  EXPECT_EQ(keysOf(map), expected);
}

TEST(OrderedMap, boundsAreTheFirstNotLessAndTheFirstGreater) {
  OrderedText map;
  insertAll(map, series(2, 2, 1000));  // 2, 4, ... 2000
  for (U32 key = 0; key < 2000; ++key) {
    const U32 notLess = key < 2 ? 2 : (key + 1) / 2 * 2;
    const U32 greater = key < 2 ? 2 : key / 2 * 2 + 2;
    ASSERT_EQ(map.lowerBound(TestKey(key)).key().value(), notLess) << key;
    ASSERT_EQ(map.upperBound(TestKey(key)).key().value(), greater) << key;
  }
  EXPECT_EQ(map.lowerBound(TestKey(2000)).key().value(), 2000u);
  EXPECT_TRUE(map.upperBound(TestKey(2000)) == map.end());
  EXPECT_TRUE(map.lowerBound(TestKey(2001)) == map.end());
}

TEST(OrderedMap, boundsSkipLeavesThatWent) {
  OrderedText map;
  insertAll(map, series(0, 1, 1000));
  for (U32 key = 100; key < 900; ++key) map.erase(TestKey(key));
  EXPECT_EQ(map.lowerBound(TestKey(100)).key().value(), 900u);
  EXPECT_EQ(map.upperBound(TestKey(99)).key().value(), 900u);
  EXPECT_EQ(map.lowerBound(TestKey(899)).key().value(), 900u);
}

TEST(OrderedMap, walkGoesOnWhenItsMemberIsErased) {
  OrderedText map;
  insertAll(map, series(0, 1, 200));
  Keys met;
  for (auto at = map.begin(); at != map.end(); ++at) {
    met.push_back(at.key().value());
    map.erase(at.key());
  }
  EXPECT_EQ(met, series(0, 1, 200));
  EXPECT_TRUE(map.empty());
}

TEST(OrderedMap, walkMeetsGreaterMembersThatComeAndNotThoseThatGo) {
  OrderedText map;
  insertAll(map, {10, 20, 30});
  auto at = map.begin();
  insertAll(map, {5, 15});
  map.erase(TestKey(20));
  Keys met;
  for (; at != map.end(); ++at) met.push_back(at.key().value());
  EXPECT_EQ(met, (Keys{10, 15, 30}));
}

TEST(OrderedMap, walkEndsWhenEverythingGoes) {
  OrderedText map;
  insertAll(map, series(0, 1, 100));
  auto at = map.begin();
  map.clear();
  ++at;
  EXPECT_TRUE(at == map.end());
}

TEST(OrderedMap, standingIteratorReachesItsValueAfterOthersCameAndWent) {
  OrderedText map;
  insertAll(map, series(1000, 1, 10));
  const auto at = map.lowerBound(TestKey(1005));
  insertAll(map, series(0, 1, 900));
  for (U32 key = 1000; key < 1005; ++key) map.erase(TestKey(key));
  EXPECT_EQ(at.key(), TestKey(1005));
  EXPECT_EQ(*at, "1005");
}

TEST(OrderedMap, iteratorsAreEqualAtTheSameKeyAndAtTheEnd) {
  OrderedText map;
  insertAll(map, {1, 2});
  auto at = map.begin();
  EXPECT_TRUE(at == map.lowerBound(TestKey(0)));
  EXPECT_TRUE(at != map.lowerBound(TestKey(2)));
  ++at;
  EXPECT_TRUE(at == map.lowerBound(TestKey(2)));
  ++at;
  EXPECT_TRUE(at == map.end());
}

TEST(OrderedMap, endOfAnErasedValueMayUseTheMap) {
  OrderedEnd map;
  std::string seen;
  auto comesBack = [&] {
    seen = std::to_string(map.size()) + (map.find(TestKey(0)) == nullptr ? " gone" : " there");
    for (U32 key = 100; key < 200; ++key) map.insert(TestKey(key), makePtr<AtEnd>([] {}));
    for (U32 key = 1; key < 40; ++key) map.erase(TestKey(key));
  };
  map.insert(TestKey(0), makePtr<AtEnd>(comesBack));
  for (U32 key = 1; key < 40; ++key) map.insert(TestKey(key), makePtr<AtEnd>([] {}));
  EXPECT_TRUE(map.erase(TestKey(0)));
  EXPECT_EQ(seen, "39 gone");
  EXPECT_EQ(map.size(), 100u);
  EXPECT_EQ(map.begin().key(), TestKey(100));
}

TEST(OrderedMap, valuesStayAliveWhileNodesSplitAndJoin) {
  int ended = 0;
  {
    OrderedEnd map;
    for (U32 key = 0; key < 2000; ++key) {
      map.insert(TestKey(key * 7 % 2000), makePtr<AtEnd>([&] { ++ended; }));
    }
    EXPECT_EQ(ended, 0);
    for (U32 key = 0; key < 500; ++key) map.erase(TestKey(key));
    EXPECT_EQ(ended, 500);
  }
  EXPECT_EQ(ended, 2000);
}

}  // namespace
}  // namespace Mox
