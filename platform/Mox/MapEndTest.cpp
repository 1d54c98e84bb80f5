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

  Map map_;
};

using Maps = testing::Types<HashMap<TestKey, Ptr<AtEnd>>, OrderedMap<TestKey, Ptr<AtEnd>>>;
struct MapNames {
  template <class Map>
  static std::string GetName(int) {  // NOLINT(readability-identifier-naming): gtest calls it so
    return std::is_same_v<Map, HashMap<TestKey, Ptr<AtEnd>>> ? "HashMap" : "OrderedMap";
  }
};
TYPED_TEST_SUITE(MapEnd, Maps, MapNames);

TYPED_TEST(MapEnd, erasedValueIsDestroyedAtOnce) {
  bool ended = false;
  this->add(1, [&] { ended = true; });
  this->add(2);
  this->map_.erase(TestKey(1));
  EXPECT_TRUE(ended);
}

TYPED_TEST(MapEnd, endOfTheLastErasedValueMayInsertAgain) {
  this->add(1, [this] { this->add(2); });
  EXPECT_TRUE(this->map_.erase(TestKey(1)));
  EXPECT_EQ(this->map_.size(), 1u);
  EXPECT_TRUE(this->has(2));
}

TYPED_TEST(MapEnd, endOfAReplacedValueMayUseTheMap) {
  this->add(1, [this] { this->addMany(); });
  EXPECT_FALSE(this->map_.insert(TestKey(1), makePtr<AtEnd>([] {})));
  EXPECT_EQ(this->map_.size(), 101u);
  EXPECT_TRUE(this->has(1));
}

TYPED_TEST(MapEnd, valuesThatEndWithTheirMapFindItEmpty) {
  std::string seen;
  {
    TypeParam map;
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

}  // namespace
}  // namespace Mox
