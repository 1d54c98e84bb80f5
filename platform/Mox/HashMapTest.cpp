#include <Mox/HashMap.h>

#include <algorithm>
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

using HashText = HashMap<TestKey, std::string>;

std::vector<U32> sortedKeys(const HashText& map) {
  std::vector<U32> keys;
  for (const TestKey key : map.keys()) keys.push_back(key.value());
  std::sort(keys.begin(), keys.end());
  return keys;
}
using Keys = std::vector<U32>;

using HashEnd = HashMap<TestKey, Ptr<AtEnd>>;

TEST(HashMap, isOnePointerAndHasNothingAtFirst) {
  static_assert(sizeof(HashText) == sizeof(void*));
  const HashText map;
  EXPECT_EQ(map.size(), 0u);
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.find(TestKey(1)), nullptr);
  EXPECT_EQ(map.find(TestKey(0)), nullptr);
  EXPECT_TRUE(map.begin() == map.end());
  EXPECT_TRUE(map.keys().empty());
}

TEST(HashMap, findsWhatWasInserted) {
  HashText map;
  EXPECT_TRUE(map.insert(TestKey(7), "seven"));
  ASSERT_NE(map.find(TestKey(7)), nullptr);
  EXPECT_EQ(*map.find(TestKey(7)), "seven");
  EXPECT_TRUE(map.contains(TestKey(7)));
  EXPECT_FALSE(map.contains(TestKey(8)));
  EXPECT_EQ(map.size(), 1u);
}

TEST(HashMap, insertingAnExistingKeyReplacesItsValue) {
  HashText map;
  map.insert(TestKey(7), "seven");
  EXPECT_FALSE(map.insert(TestKey(7), "sept"));
  EXPECT_EQ(*map.find(TestKey(7)), "sept");
  EXPECT_EQ(map.size(), 1u);
}

TEST(HashMap, erasesOnlyWhatIsThere) {
  HashText map;
  EXPECT_FALSE(map.erase(TestKey(7)));
  map.insert(TestKey(7), "seven");
  EXPECT_FALSE(map.erase(TestKey(8)));
  EXPECT_FALSE(map.erase(TestKey(0)));
  EXPECT_TRUE(map.erase(TestKey(7)));
  EXPECT_FALSE(map.erase(TestKey(7)));
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.find(TestKey(7)), nullptr);
}

TEST(HashMap, keepsKeyZeroApartFromFreeSlots) {
  HashText map;
  map.insert(TestKey(1), "one");
  EXPECT_FALSE(map.contains(TestKey(0)));
  EXPECT_TRUE(map.insert(TestKey(0), "zero"));
  EXPECT_FALSE(map.insert(TestKey(0), "nought"));
  EXPECT_EQ(*map.find(TestKey(0)), "nought");
  EXPECT_EQ(sortedKeys(map), (Keys{0, 1}));
  for (U32 key = 2; key < 50; ++key) map.insert(TestKey(key), "other");
  EXPECT_EQ(*map.find(TestKey(0)), "nought") << "it moves along when the table grows";
  EXPECT_TRUE(map.erase(TestKey(0)));
  EXPECT_FALSE(map.contains(TestKey(0)));
  EXPECT_EQ(map.size(), 49u);
}

TEST(HashMap, keepsKeyZeroAlone) {
  HashText map;
  map.insert(TestKey(0), "zero");
  EXPECT_EQ(sortedKeys(map), Keys{0});
  EXPECT_TRUE(map.erase(TestKey(0)));
  EXPECT_TRUE(map.begin() == map.end());
}

TEST(HashMap, keepsTheLargestKey) {
  HashText map;
  map.insert(TestKey(0xffffffffu), "last");
  EXPECT_EQ(*map.find(TestKey(0xffffffffu)), "last");
  EXPECT_EQ(sortedKeys(map), Keys{0xffffffffu});
}

TEST(HashMap, keepsAllMembersWhileItGrowsAndShrinks) {
  HashText map;
  for (U32 key = 0; key < 5000; ++key) map.insert(TestKey(key * 256), std::to_string(key));
  EXPECT_EQ(map.size(), 5000u);
  for (U32 key = 0; key < 5000; key += 2) EXPECT_TRUE(map.erase(TestKey(key * 256)));
  for (U32 key = 0; key < 5000; ++key) {
    const std::string* found = map.find(TestKey(key * 256));
    ASSERT_EQ(found != nullptr, key % 2 == 1) << key;
    if (found != nullptr) {
      EXPECT_EQ(*found, std::to_string(key));
    }
  }
}

TEST(HashMap, iterationMeetsEachMemberOnceAndMayChangeValues) {
  HashText map;
  for (U32 key = 0; key < 20; ++key) map.insert(TestKey(key), "x");
  for (const auto& [key, value] : map) value += std::to_string(key.value());
  const HashText& fixed = map;
  size_t met = 0;
  for (const auto& [key, value] : fixed) {
    EXPECT_EQ(value, "x" + std::to_string(key.value()));
    ++met;
  }
  EXPECT_EQ(met, 20u);
  EXPECT_EQ(sortedKeys(map).size(), 20u);
}

TEST(HashMap, iteratesInTheSameOrderAfterTheSameHistory) {
  HashText one;
  HashText two;
  for (U32 key = 0; key < 100; ++key) {
    one.insert(TestKey(key * 77), "");
    two.insert(TestKey(key * 77), "");
  }
  EXPECT_EQ(one.keys(), two.keys());
}

TEST(HashMap, walkOverACopyOfTheKeysMayDelete) {
  HashText map;
  for (U32 key = 0; key < 100; ++key) map.insert(TestKey(key), "");
  for (const TestKey key : map.keys()) {
    if (key.value() % 10 != 0) map.erase(key);
  }
  EXPECT_EQ(sortedKeys(map), (Keys{0, 10, 20, 30, 40, 50, 60, 70, 80, 90}));
}

TEST(HashMap, clearedOneCanBeUsedAgain) {
  HashText map;
  for (U32 key = 0; key < 10; ++key) map.insert(TestKey(key), "old");
  map.clear();
  EXPECT_TRUE(map.empty());
  map.clear();
  map.insert(TestKey(3), "new");
  EXPECT_EQ(sortedKeys(map), Keys{3});
}

TEST(HashMap, movesWithItsMembers) {
  HashText map;
  map.insert(TestKey(3), "three");
  HashText moved(std::move(map));
  EXPECT_EQ(*moved.find(TestKey(3)), "three");
  HashText assigned;
  assigned.insert(TestKey(4), "four");
  assigned = std::move(moved);
  EXPECT_EQ(*assigned.find(TestKey(3)), "three");
  EXPECT_FALSE(assigned.contains(TestKey(4)));
}

TEST(HashMap, endOfAnErasedValueMayUseTheMap) {
  HashEnd map;
  std::string seen;
  auto comesBack = [&] {
    seen += map.contains(TestKey(1)) ? "there " : "gone ";
    seen += std::to_string(map.size());
    // Enough of them that the table grows and moves.
    for (U32 key = 10; key < 30; ++key) map.insert(TestKey(key), makePtr<AtEnd>([] {}));
    map.erase(TestKey(2));
  };
  map.insert(TestKey(1), makePtr<AtEnd>(comesBack));
  map.insert(TestKey(2), makePtr<AtEnd>([] {}));
  map.insert(TestKey(3), makePtr<AtEnd>([] {}));
  EXPECT_TRUE(map.erase(TestKey(1)));
  EXPECT_EQ(seen, "gone 2");
  EXPECT_EQ(map.size(), 21u);
  EXPECT_TRUE(map.contains(TestKey(3)));
}

TEST(HashMap, growingKeepsValuesAlive) {
  int ended = 0;
  {
    HashEnd map;
    for (U32 key = 0; key < 100; ++key) map.insert(TestKey(key), makePtr<AtEnd>([&] { ++ended; }));
    EXPECT_EQ(ended, 0);
  }
  EXPECT_EQ(ended, 100);
}

}  // namespace
}  // namespace Mox
