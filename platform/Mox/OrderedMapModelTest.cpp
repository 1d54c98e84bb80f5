#include <Mox/OrderedMap.h>

#include <map>
#include <memory>

#include <gtest/gtest.h>

#include "MapTestSupport.h"
#include "TestKey.h"

namespace Mox {
namespace {

// An ordered map and a simple one that are changed alike, and an iterator that stands in the first
// one all the while.
class OrderedMapModelTest : public testing::Test {
 protected:
  void runSeed(U32 seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Random random(seed);
    const U32 keys = seed % 3 == 0 ? 50 : seed % 3 == 1 ? 500 : 3000;
    auto standing = map_.begin();
    for (int step = 0; step < 1200 && !HasFailure(); ++step) {
      change(random, keys, step / 300 % 2 == 0);
      if (step % 7 == 0) {
        walkOn(standing, TestKey(random() % keys));
      }
      if (step % 60 == 0) compare(random, keys);
    }
    map_.clear();
    model_.clear();
    EXPECT_EQ(token_.use_count(), 1);
  }

 private:
  using Map = OrderedMap<TestKey, ModelValue>;

  // Phases of growing and of shrinking; some changes hit a run of neighbours, as clean-ups do.
  void change(Random& random, U32 keys, bool growing) {
    const U32 first = random() % keys;
    const U32 run = random() % 20 == 0 ? 40 : 1;
    const bool adding = random() % 4 < (growing ? 3u : 1u);
    for (U32 key = first; key < first + run; ++key) {
      if (adding) {
        const U32 number = random();
        const bool added = map_.insert(TestKey(key), ModelValue{number, token_});
        EXPECT_EQ(added, model_.insert_or_assign(key, number).second);
      } else {
        EXPECT_EQ(map_.erase(TestKey(key)), model_.erase(key) == 1);
      }
    }
  }

  // `standing` may be at a member that went: the next one is the first greater one that is there.
  void walkOn(Map::Iterator& standing, TestKey restart) {
    if (standing == map_.end()) {
      standing = map_.lowerBound(restart);
      expectAt(standing, model_.lower_bound(restart.value()));
      return;
    }
    const U32 key = standing.key().value();
    ++standing;
    expectAt(standing, model_.upper_bound(key));
  }

  void expectAt(const Map::Iterator& at, std::map<U32, U32>::const_iterator expected) {
    ASSERT_EQ(at == map_.end(), expected == model_.end());
    if (expected == model_.end()) return;
    ASSERT_EQ(at.key().value(), expected->first);
    ASSERT_EQ((*at).number, expected->second);
  }

  void compare(Random& random, U32 keys) {
    ASSERT_EQ(map_.size(), model_.size());
    ASSERT_EQ(static_cast<size_t>(token_.use_count()), model_.size() + 1);
    auto at = map_.begin();
    for (auto expected = model_.cbegin(); expected != model_.cend(); ++expected, ++at) {
      ASSERT_NO_FATAL_FAILURE(expectAt(at, expected));
    }
    ASSERT_TRUE(at == map_.end());
    for (int probe = 0; probe < 20; ++probe) {
      const U32 key = random() % (keys + 60);
      ASSERT_EQ(map_.find(TestKey(key)) != nullptr, model_.contains(key));
      ASSERT_NO_FATAL_FAILURE(expectAt(map_.lowerBound(TestKey(key)), model_.lower_bound(key)));
      ASSERT_NO_FATAL_FAILURE(expectAt(map_.upperBound(TestKey(key)), model_.upper_bound(key)));
    }
  }

  std::shared_ptr<int> token_ = std::make_shared<int>();
  Map map_;
  std::map<U32, U32> model_;
};

TEST_F(OrderedMapModelTest, agreesWithASimpleMap) {
  for (U32 seed = 1; seed <= 250 && !HasFailure(); ++seed) runSeed(seed);
}

}  // namespace
}  // namespace Mox
