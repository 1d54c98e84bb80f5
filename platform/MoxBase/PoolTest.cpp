#include <MoxBase/Pool.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <MoxBase/Ptr.h>

namespace Mox {
namespace {

TEST(Pool, cellsOfRandomSizesDoNotOverlap) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::map<unsigned char*, std::pair<size_t, unsigned char>> live;
  for (int i = 0; i < 20000; ++i) {
    if (live.empty() || random() % 3 != 0) {
      const size_t bytes = 1 + random() % 600;
      auto* cell = static_cast<unsigned char*>(poolNew(bytes));
      const auto mark = static_cast<unsigned char>(random());
      std::memset(cell, mark, bytes);
      ASSERT_TRUE(live.emplace(cell, std::pair(bytes, mark)).second);
    } else {
      const auto at = std::next(live.begin(), static_cast<long>(random() % live.size()));
      const auto [bytes, mark] = at->second;
      for (size_t b = 0; b < bytes; ++b) ASSERT_EQ(at->first[b], mark);
      poolDelete(at->first, bytes);
      live.erase(at);
    }
  }
  for (const auto& [cell, what] : live) poolDelete(cell, what.first);
}

// Without a pool, as under AddressSanitizer, nothing of this can be seen.
bool isPooled() {
  void* const cell = poolNew(48);
  const bool pooled = poolUse().spans != 0;
  poolDelete(cell, 48);
  return pooled;
}

class PoolMemoryTest : public testing::Test {
 protected:
  PoolMemoryTest() {
    if (!isPooled()) skip();
  }
  static void skip() { GTEST_SKIP() << "every object is an allocation of its own"; }
  static std::vector<void*> taken(size_t count, size_t bytes) {
    std::vector<void*> cells(count);
    for (void*& cell : cells) cell = poolNew(bytes);
    return cells;
  }
  static void giveBack(const std::vector<void*>& cells, size_t bytes) {
    for (void* cell : cells) poolDelete(cell, bytes);
  }
};

TEST_F(PoolMemoryTest, goesBackWhenMostObjectsAreGone) {
  if (IsSkipped()) return;
  constexpr size_t bytes = 240;
  const size_t before = poolUse().spans;
  std::vector<void*> cells = taken(400'000, bytes);
  EXPECT_GE(poolUse().spans, cells.size() * bytes);
  // One of a thousand stays, wherever it lies.
  std::vector<void*> stay;
  std::mt19937 random(1);
  std::shuffle(cells.begin(), cells.end(), random);
  for (size_t i = 0; i < 400; ++i) {
    stay.push_back(cells.back());
    cells.pop_back();
  }
  giveBack(cells, bytes);
  // Each of those keeps a span at most. Half as many free ones are kept, and a few.
  constexpr size_t span = 65536;
  EXPECT_LE(poolUse().spans, 2 * (before + 400 * span) + 40 * span);
  giveBack(stay, bytes);
  EXPECT_LE(poolUse().spans, 2 * before + 40 * span);
}

TEST_F(PoolMemoryTest, ofOneSizeServesAnother) {
  if (IsSkipped()) return;
  giveBack(taken(100'000, 96), 96);
  const size_t before = poolUse().spans;
  constexpr size_t count = 1'000;  // fewer than the free spans hold that are kept
  const std::vector<void*> cells = taken(count, 160);
  EXPECT_LE(poolUse().spans, before + 65536);
  giveBack(cells, 160);
}

TEST_F(PoolMemoryTest, thatWentBackIsUsedAgain) {
  if (IsSkipped()) return;
  for (int round = 0; round < 3; ++round) {
    std::vector<void*> cells = taken(200'000, 64);
    for (size_t i = 0; i < cells.size(); ++i) std::memset(cells[i], static_cast<int>(i % 251), 64);
    for (size_t i = 0; i < cells.size(); ++i) {
      ASSERT_EQ(static_cast<unsigned char*>(cells[i])[63], i % 251);
    }
    EXPECT_EQ(std::set<void*>(cells.begin(), cells.end()).size(), cells.size());
    giveBack(cells, 64);
  }
}

TEST(Pool, servesThreadsWhenPointersAreThreadSafe) {
  threadSafePtrsIs(true);
  auto churn = [] {
    std::vector<void*> cells;
    for (int i = 0; i < 5000; ++i) {
      cells.push_back(poolNew(48));
      if (i % 3 == 0) {
        poolDelete(cells.back(), 48);
        cells.pop_back();
      }
    }
    return cells;
  };
  std::vector<void*> first;
  std::vector<void*> second;
  std::thread one([&] { first = churn(); });
  std::thread two([&] { second = churn(); });
  one.join();
  two.join();
  std::set<void*> all(first.begin(), first.end());
  all.insert(second.begin(), second.end());
  EXPECT_EQ(all.size(), first.size() + second.size());
  for (void* cell : all) poolDelete(cell, 48);
  threadSafePtrsIs(false);
}

}  // namespace
}  // namespace Mox
