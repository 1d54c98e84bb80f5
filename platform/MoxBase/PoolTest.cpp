#include <MoxBase/Pool.h>

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
