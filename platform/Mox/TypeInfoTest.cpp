// Entities as code sees them that does not know their types.
#include <Mox/TypeInfo.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EntityTestSupport.h"

namespace Mox {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

class TypeInfoTest : public testing::Test {
 protected:
  const TypeInfo& type_ = typeInfoOf<Garden>();
  Ptr<Garden> garden_ = makePtr<Garden>("kew");
  const CollectionInfo& beds_ = type_.collections[0];
  const CollectionInfo& pots_ = type_.collections[1];
};

TEST_F(TypeInfoTest, entityKnowsItsType) {
  const EntityBase& entity = *garden_;
  EXPECT_EQ(&entity.type(), &type_);
  EXPECT_STREQ(type_.name, "Test::Garden");
}

TEST_F(TypeInfoTest, attributesStandInTheOrderOfIdentifiers) {
  std::string rows;
  for (const AttrInfo& attr : type_.attrs) rows += std::to_string(attr.id) + attr.name + " ";
  EXPECT_EQ(rows, "257name 258area 259fence 260visits 261bed 262pot ");
}

TEST_F(TypeInfoTest, attributeIsFoundByIdentifierAndByName) {
  EXPECT_STREQ(type_.attr(AttrId{258})->name, "area");
  EXPECT_EQ(type_.attr("area")->id, 258u);
}

TEST_F(TypeInfoTest, unknownAttributeIsNull) {
  EXPECT_EQ(type_.attr(AttrId{0}), nullptr);
  EXPECT_EQ(type_.attr(AttrId{252}), nullptr);
  EXPECT_EQ(type_.attr(AttrId{263}), nullptr);
  EXPECT_EQ(type_.attr(AttrId{0xffffffffu}), nullptr);
  EXPECT_EQ(type_.attr("are"), nullptr);
  EXPECT_EQ(type_.attr(""), nullptr);
}

TEST_F(TypeInfoTest, keyIsTheConstructionArgument) {
  EXPECT_STREQ(type_.key()->name, "name");
  EXPECT_EQ(type_.key()->value, ValueKind::text);
  EXPECT_EQ(type_.key()->get(*garden_), Value(std::string("kew")));
  EXPECT_STREQ(typeInfoOf<Bed>().key()->name, "place");
  EXPECT_EQ(typeInfoOf<Bed>().key()->value, ValueKind::u32);
}

TEST_F(TypeInfoTest, valuesAreReadWhateverTheirKind) {
  garden_->visitsIs(3);
  EXPECT_EQ(type_.attr("area")->get(*garden_), Value(1.0));
  EXPECT_EQ(type_.attr("fence")->get(*garden_), Value(4.0));
  EXPECT_EQ(type_.attr("visits")->get(*garden_), Value(U64{3}));
}

TEST_F(TypeInfoTest, valuesAreWrittenThroughTheSetters) {
  std::string notified;
  const Watcher watcher(garden_, notified);
  type_.attr("area")->set(*garden_, Value(2.5));
  type_.attr("visits")->set(*garden_, Value(U64{9}));
  EXPECT_EQ(garden_->area(), 2.5);
  EXPECT_EQ(garden_->visits(), 9u);
  EXPECT_EQ(notified, "area visits ");
}

TEST_F(TypeInfoTest, valueOfTheWrongKindIsARangeErrorAndChangesNothing) {
  EXPECT_THROW(type_.attr("area")->set(*garden_, Value(U64{2})), RangeError);
  EXPECT_THROW(type_.attr("visits")->set(*garden_, Value(2.0)), RangeError);
  EXPECT_THROW(type_.attr("visits")->set(*garden_, Value()), RangeError);
  EXPECT_THROW(type_.attr("visits")->set(*garden_, Value(U64{1} << 32)), RangeError);
  EXPECT_EQ(garden_->area(), 1.0);
  EXPECT_EQ(garden_->visits(), 0u);
}

TEST_F(TypeInfoTest, whatCannotBeWrittenHasNoSetter) {
  EXPECT_EQ(type_.attr("name")->set, nullptr);
  EXPECT_EQ(type_.attr("fence")->set, nullptr);
  EXPECT_EQ(type_.attr("bed")->set, nullptr);
}

TEST_F(TypeInfoTest, collectionHasNoValue) { EXPECT_EQ(type_.attr("bed")->get, nullptr); }

TEST_F(TypeInfoTest, collectionsAreThoseOfTheTable) {
  ASSERT_EQ(type_.collections.size(), 2u);
  EXPECT_STREQ(beds_.name, "bed");
  EXPECT_EQ(beds_.id, 261u);
  EXPECT_TRUE(beds_.ordered);
  EXPECT_STREQ(pots_.name, "pot");
  EXPECT_FALSE(pots_.ordered);
  EXPECT_EQ(pots_.next, nullptr);
  EXPECT_EQ(&beds_.memberType(), &typeInfoOf<Bed>());
  EXPECT_TRUE(typeInfoOf<Bed>().collections.empty());
}

TEST_F(TypeInfoTest, membersAreMadeFoundAndRemovedByKey) {
  EXPECT_EQ(beds_.find(*garden_, 7), nullptr);
  EntityBase* bed = beds_.add(*garden_, 7).get();
  EXPECT_EQ(bed, garden_->bed(TestKey(7)).get());
  EXPECT_EQ(beds_.add(*garden_, 7), bed);
  EXPECT_EQ(beds_.find(*garden_, 7), bed);
  EXPECT_EQ(bed->key(), 7u);
  EXPECT_EQ(bed->parent(), garden_.get());
  EXPECT_EQ(beds_.size(*garden_), 1u);
  beds_.remove(*garden_, 7);
  beds_.remove(*garden_, 7);
  EXPECT_EQ(beds_.size(*garden_), 0u);
}

TEST_F(TypeInfoTest, keysAreThoseOfTheMembers) {
  for (const U32 key : {9u, 3u, 0xffffffffu}) {
    beds_.add(*garden_, key);
    pots_.add(*garden_, key);
  }
  EXPECT_THAT(beds_.keys(*garden_), ElementsAre(3u, 9u, 0xffffffffu));
  EXPECT_THAT(pots_.keys(*garden_), UnorderedElementsAre(3u, 9u, 0xffffffffu));
}

TEST_F(TypeInfoTest, keysAreWalkedInSteps) {
  std::vector<U32> keys;
  for (U32 key = 0; key < 100; ++key) keys.push_back(key * 3);
  keys.push_back(0xffffffffu);
  for (const U32 key : keys) {
    beds_.add(*garden_, key);
    pots_.add(*garden_, key);
  }
  for (const CollectionInfo* collection : {&beds_, &pots_}) {
    std::vector<U32> met;
    size_t steps = 0;
    U64 bookmark = 0;
    do {
      bookmark = collection->walk(*garden_, bookmark, 10, [&](U32 key) { met.push_back(key); });
      ++steps;
    } while (bookmark != 0);
    EXPECT_GE(steps, 10u);
    if (!collection->ordered) std::sort(met.begin(), met.end());
    EXPECT_EQ(met, keys);
  }
}

TEST_F(TypeInfoTest, orderedCollectionFindsTheNextKey) {
  for (const U32 key : {9u, 3u}) beds_.add(*garden_, key);
  EXPECT_EQ(beds_.next(*garden_, 0), 3u);
  EXPECT_EQ(beds_.next(*garden_, 3), 3u);
  EXPECT_EQ(beds_.next(*garden_, 4), 9u);
  EXPECT_EQ(beds_.next(*garden_, 10), std::nullopt);
}

TEST_F(TypeInfoTest, keyOfAnEntityWithoutANumberIsZero) { EXPECT_EQ(garden_->key(), 0u); }

}  // namespace
}  // namespace Mox
