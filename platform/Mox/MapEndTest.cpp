// Values of collections of both kinds are destroyed at once, and a destructor may use the
// collection, as that of a state machine does.
#include <string>

#include <Mox/HashMap.h>
#include <Mox/OrderedMap.h>
#include <gtest/gtest.h>

#include "MapTestSupport.h"
#include "TestKey.h"

namespace Mox {
namespace {

template <class Map>
class MapEnd : public testing::Test {
 protected:
  void add(
      U32 key, std::function<void()> atEnd = [] {}) {
    map_.insert(TestKey(key), makePtr<AtEnd>(std::move(atEnd)));
  }
  void addMany() {
    for (U32 key = 100; key < 200; ++key) add(key);
  }
  bool has(U32 key) { return map_.find(TestKey(key)) != nullptr; }

  // The rules, for either kind.
  void erasedValueIsDestroyedAtOnce();
  void endOfTheLastErasedValueMayInsertAgain();
  void endOfAReplacedValueMayUseTheMap();
  void valuesThatEndWithTheirMapFindItEmpty();

  Map map_;
};

template <class Map>
void MapEnd<Map>::erasedValueIsDestroyedAtOnce() {
  bool ended = false;
  add(1, [&] { ended = true; });
  add(2);
  map_.erase(TestKey(1));
  EXPECT_TRUE(ended);
}

template <class Map>
void MapEnd<Map>::endOfTheLastErasedValueMayInsertAgain() {
  add(1, [this] { add(2); });
  EXPECT_TRUE(map_.erase(TestKey(1)));
  EXPECT_EQ(map_.size(), 1u);
  EXPECT_TRUE(has(2));
}

template <class Map>
void MapEnd<Map>::endOfAReplacedValueMayUseTheMap() {
  add(1, [this] { addMany(); });
  EXPECT_FALSE(map_.insert(TestKey(1), makePtr<AtEnd>([] {})));
  EXPECT_EQ(map_.size(), 101u);
  EXPECT_TRUE(has(1));
}

template <class Map>
void MapEnd<Map>::valuesThatEndWithTheirMapFindItEmpty() {
  std::string seen;
  {
    Map map;
    const auto look = [&] {
      seen += std::to_string(map.size()) + (map.find(TestKey(1)) != nullptr ? "!" : "");
    };
    map.insert(TestKey(1), makePtr<AtEnd>(look));
    map.insert(TestKey(2), makePtr<AtEnd>(look));
    map.clear();
    EXPECT_EQ(seen, "00");
    map.insert(TestKey(1), makePtr<AtEnd>(look));
  }
  EXPECT_EQ(seen, "000");
}

using HashMapEnd = MapEnd<HashMap<TestKey, Ptr<AtEnd>>>;
using OrderedMapEnd = MapEnd<OrderedMap<TestKey, Ptr<AtEnd>>>;

TEST_F(HashMapEnd, erasedValueIsDestroyedAtOnce) { MapEnd::erasedValueIsDestroyedAtOnce(); }
TEST_F(HashMapEnd, endOfTheLastErasedValueMayInsertAgain) {
  MapEnd::endOfTheLastErasedValueMayInsertAgain();
}
TEST_F(HashMapEnd, endOfAReplacedValueMayUseTheMap) { MapEnd::endOfAReplacedValueMayUseTheMap(); }
TEST_F(HashMapEnd, valuesThatEndWithTheirMapFindItEmpty) {
  MapEnd::valuesThatEndWithTheirMapFindItEmpty();
}

TEST_F(OrderedMapEnd, erasedValueIsDestroyedAtOnce) { MapEnd::erasedValueIsDestroyedAtOnce(); }
TEST_F(OrderedMapEnd, endOfTheLastErasedValueMayInsertAgain) {
  MapEnd::endOfTheLastErasedValueMayInsertAgain();
}
TEST_F(OrderedMapEnd, endOfAReplacedValueMayUseTheMap) {
  MapEnd::endOfAReplacedValueMayUseTheMap();
}
TEST_F(OrderedMapEnd, valuesThatEndWithTheirMapFindItEmpty) {
  MapEnd::valuesThatEndWithTheirMapFindItEmpty();
}

}  // namespace
}  // namespace Mox
