// The maps, each beside the standard library's map for the same work. The keys come in random
// order, as groups do on a link.
#include <map>
#include <unordered_map>

#include <Mox/HashMap.h>
#include <Mox/OrderedMap.h>

#include "BenchQuerier.h"
#include "Budget.h"

namespace Bench {
namespace {

// Multiplied by an odd number, so that the standard map's order of buckets is no advantage.
struct Hash {
  size_t operator()(IpAddr key) const { return key.value() * 0x9e3779b97f4a7c15u >> 20; }
};

using OurHashMap = Mox::HashMap<IpAddr, size_t>;
using StandardHashMap = std::unordered_map<IpAddr, size_t, Hash>;
using OurOrderedMap = Mox::OrderedMap<IpAddr, size_t>;
using StandardOrderedMap = std::map<IpAddr, size_t>;

template <class Iterator>
size_t valueAt(Iterator found) {
  return found->second;
}
template <>
size_t valueAt(size_t* found) {
  return *found;
}

template <class Map>
void put(Map& map, IpAddr key, size_t value) {
  map.emplace(key, value);
}
void put(OurHashMap& map, IpAddr key, size_t value) { map.insert(key, value); }
void put(OurOrderedMap& map, IpAddr key, size_t value) { map.insert(key, value); }

template <class Map, int nanoseconds>
void find(benchmark::State& state) {
  const std::vector<IpAddr> keys = shuffledGroups(static_cast<size_t>(state.range(0)));
  Map map;
  for (const IpAddr key : keys) put(map, key, key.value());
  for (auto _ : state) {
    size_t sum = 0;
    for (const IpAddr key : keys) sum += valueAt(map.find(key));
    benchmark::DoNotOptimize(sum);
  }
  budget(state, nanoseconds, keys.size());
}
BENCHMARK_TEMPLATE(find, OurHashMap, 30)->Name("find/hashMap")->Apply(sizes<1000, 1000000>);
BENCHMARK_TEMPLATE(find, StandardHashMap, 300)
    ->Name("find/standardHashMap")
    ->Apply(sizes<1000, 1000000>);
BENCHMARK_TEMPLATE(find, OurOrderedMap, 400)->Name("find/orderedMap")->Apply(sizes<1000, 1000000>);
BENCHMARK_TEMPLATE(find, StandardOrderedMap, 2000)
    ->Name("find/standardOrderedMap")
    ->Apply(sizes<1000, 1000000>);

size_t sumOf(const OurOrderedMap& map) {
  size_t sum = 0;
  for (auto at = map.begin(); at != map.end(); ++at) sum += *at;
  return sum;
}
size_t sumOf(const StandardOrderedMap& map) {
  size_t sum = 0;
  for (const auto& [key, value] : map) sum += value;
  return sum;
}

template <class Map, int nanoseconds>
void walk(benchmark::State& state) {
  const std::vector<IpAddr> keys = shuffledGroups(static_cast<size_t>(state.range(0)));
  Map map;
  for (const IpAddr key : keys) put(map, key, key.value());
  for (auto _ : state) benchmark::DoNotOptimize(sumOf(map));
  budget(state, nanoseconds, keys.size());
}
BENCHMARK_TEMPLATE(walk, OurOrderedMap, 10)->Name("walk/orderedMap")->Apply(sizes<1000, 1000000>);
BENCHMARK_TEMPLATE(walk, StandardOrderedMap, 300)
    ->Name("walk/standardOrderedMap")
    ->Apply(sizes<1000, 1000000>);

}  // namespace
}  // namespace Bench
