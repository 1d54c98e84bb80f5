#include <Mox/HashMap.h>

#include <memory>
#include <string>
#include <unordered_map>

#include <gtest/gtest.h>

#include "MapTestSupport.h"
#include "TestKey.h"

namespace Mox {
namespace {

constexpr U64 usualMultiplier = 0x9e3779b97f4a7c15u;
struct MultiplierCase {
  const char* name;
  U64 multiplier;
};

class HashMapModelTest : public testing::TestWithParam<MultiplierCase> {
 protected:
  HashMapModelTest() { hashMultiplierIs(GetParam().multiplier); }
  ~HashMapModelTest() override { hashMultiplierIs(usualMultiplier); }

  // Between two steps of a walk members come and go: those that stay are met once, others at most
  // once for each time that they came.
  void walkSeed(U32 seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Random random(seed);
    const U32 keys = seed % 2 == 0 ? 40 : 400;
    for (U32 key = 0; key < keys; ++key) {
      if (random() % 4 != 0) insert(TestKey(key), key);
    }
    std::unordered_map<U32, U32> stay = model_;
    std::unordered_map<U32, int> met;
    std::unordered_map<U32, int> came;
    U64 bookmark = 0;
    do {
      const size_t places = seed % 5 == 0 ? 4000 : 1 + random() % 8;
      bookmark =
          map_.walk(bookmark, places, [&](TestKey key, const ModelValue&) { ++met[key.value()]; });
      for (U32 changes = random() % 6; changes > 0; --changes) {
        const TestKey key(random() % (2 * keys));
        stay.erase(key.value());
        if (random() % 2 == 0) {
          insert(key, 1);
          ++came[key.value()];
        } else {
          erase(key);
        }
      }
    } while (bookmark != 0);
    for (const auto& [key, value] : stay) ASSERT_EQ(met[key], 1) << key;
    for (const auto& [key, times] : met) ASSERT_LE(times, 1 + came[key]) << key;
    map_.clear();
    model_.clear();
  }

  void runSeed(U32 seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Random random(seed);
    const U32 keys = seed % 3 == 0 ? 8 : seed % 3 == 1 ? 60 : 600;
    for (int step = 0; step < 600 && !HasFailure(); ++step) {
      // Phases of growing and of shrinking, so that it is full and empty again and again.
      const bool growing = step / 150 % 2 == 0;
      const TestKey key(random() % keys);
      if (random() % 4 < (growing ? 3u : 1u)) {
        insert(key, random());
      } else {
        erase(key);
      }
      if (step % 25 == 0) compare(keys);
    }
    map_.clear();
    model_.clear();
    EXPECT_EQ(token_.use_count(), 1);
  }

 private:
  void insert(TestKey key, U32 number) {
    const bool added = map_.insert(key, ModelValue{number, token_});
    EXPECT_EQ(added, model_.insert_or_assign(key.value(), number).second);
  }
  void erase(TestKey key) { EXPECT_EQ(map_.erase(key), model_.erase(key.value()) == 1); }

  void compare(U32 keys) {
    ASSERT_EQ(map_.size(), model_.size());
    ASSERT_EQ(static_cast<size_t>(token_.use_count()), model_.size() + 1);
    size_t met = 0;
    for (const auto& [key, value] : map_) {
      ++met;
      ASSERT_TRUE(model_.contains(key.value()));
      ASSERT_EQ(value.number, model_[key.value()]);
    }
    ASSERT_EQ(met, model_.size());
    for (U32 key = 0; key < keys; ++key) {
      ASSERT_EQ(map_.contains(TestKey(key)), model_.contains(key)) << key;
    }
  }

  std::shared_ptr<int> token_ = std::make_shared<int>();
  HashMap<TestKey, ModelValue> map_;
  std::unordered_map<U32, U32> model_;
};

TEST_P(HashMapModelTest, agreesWithASimpleMap) {
  for (U32 seed = 1; seed <= 200 && !HasFailure(); ++seed) runSeed(seed);
}

TEST_P(HashMapModelTest, walkInStepsMeetsEachMemberThatStaysOnce) {
  for (U32 seed = 1; seed <= 300 && !HasFailure(); ++seed) walkSeed(seed);
}

INSTANTIATE_TEST_SUITE_P(Multipliers, HashMapModelTest,
                         testing::Values(MultiplierCase{"usual", usualMultiplier},
                                         MultiplierCase{"allKeysInOnePlace", 1},
                                         MultiplierCase{"runsThatWrapAround", 0xc000000000000001u}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(HashMultiplier, isMadeOdd) {
  hashMultiplierIs(10);
  EXPECT_EQ(detail::hashMultiplier, 11u);
  hashMultiplierIs(usualMultiplier);
  EXPECT_EQ(detail::hashMultiplier, usualMultiplier);
}

}  // namespace
}  // namespace Mox
