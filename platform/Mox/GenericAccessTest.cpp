// Reading, writing and calling by name, for objects of every kind of row.
#include <Mox/GenericAccess.h>

#include <memory>
#include <string>

#include <Mox/Errors.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EntityTestSupport.h"

namespace Mox {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A part that only shows a text.
struct Lamp {
  static constexpr const char* valueTypeName = "Test::Lamp";
  bool lit = false;
};
std::string shownValue(const Lamp& lamp) { return lamp.lit ? "lit" : "dark"; }

// Outside any tree, with rows of the kinds that no entity of the garden has.
class Shed final : public ObjectOf<Shed> {
 public:
  static constexpr const char* entityTypeName = "Test::Shed";

  explicit Shed(Ptr<Garden> garden) : garden_(std::move(garden)) { lamp_.lit = true; }
  S32 level() const { return level_; }
  void levelIs(S32 v) { level_ = v; }
  void toolsIs(U32 v) { tools_ = v; }
  U32 toolsInc(U32 by) { return tools_ += by; }
  U32 hooks() const { return 3; }
  void sweep() { swept_ += 1; }
  S32 weigh() { return -7; }
  void take(const std::string& what) { taken_ += what; }

 private:
  Ptr<Garden> garden_;
  Ptr<RefCounted> lock_;
  Lamp lamp_;
  S32 level_ = -1;
  U32 tools_ = 2;
  HashMap<TestKey, bool> keys_;

 public:
  std::string taken_;
  int swept_ = 0;

  HashMap<TestKey, bool>& keys() { return keys_; }

  static constexpr auto attributes = attrTableFrom<130>(
      Part{"garden", &Shed::garden_}, Part{"lock", &Shed::lock_}, Part{"lamp", &Shed::lamp_},
      Stored{"level", &Shed::level_, &Shed::levelIs, Unit::bytes},
      Tally{"tools", &Shed::tools_, &Shed::toolsIs, &Shed::toolsInc},
      Constant{"hooks", &Shed::hooks}, Part{"keys", &Shed::keys_}, Operation{"sweep", &Shed::sweep},
      Operation{"weigh", &Shed::weigh}, Operation{"take", &Shed::take});
};

class GenericAccessTest : public testing::Test {
 protected:
  Ptr<Garden> garden_ = makePtr<Garden>("kew");
  Ptr<Shed> shed_ = makePtr<Shed>(garden_);
  const TypeInfo& shedType_ = shed_->type();
};

TEST_F(GenericAccessTest, readsByIdentifierAndByName) {
  EXPECT_EQ(attrValue(*garden_, AttrId{258}), Value(1.0));
  EXPECT_EQ(attrValue(*garden_, "area"), Value(1.0));
  EXPECT_EQ(attrValue(*shed_, AttrId{133}), Value(S64{-1}));
}

TEST_F(GenericAccessTest, derivedAttributeIsComputedWhenItIsRead) {
  garden_->areaIs(3.0);
  EXPECT_EQ(attrValue(*garden_, "fence"), Value(12.0));
}

TEST_F(GenericAccessTest, writesThroughTheSetterWhichNotifies) {
  std::string notified;
  const Watcher watcher(garden_, notified);
  EXPECT_TRUE(attrValueIs(*garden_, AttrId{258}, Value(2.0)));
  EXPECT_TRUE(attrValueIs(*garden_, "area", Value(2.0)));
  EXPECT_EQ(garden_->area(), 2.0);
  EXPECT_EQ(notified, "area ");
}

TEST_F(GenericAccessTest, writingAReadOnlyAttributeHasNoEffect) {
  for (const char* attr : {"name", "fence", "bed", "fullName", "parent"}) {
    EXPECT_FALSE(attrValueIs(*garden_, attr, Value(std::string("x")))) << attr;
  }
  for (const char* attr : {"garden", "lock", "lamp", "hooks", "keys", "sweep"}) {
    EXPECT_FALSE(attrValueIs(*shed_, attr, Value(U64{1}))) << attr;
  }
  EXPECT_EQ(garden_->name(), Name("kew"));
}

TEST_F(GenericAccessTest, aNumberThatDoesNotFitIsRefused) {
  EXPECT_TRUE(attrValueIs(*shed_, "level", Value(S64{-2147483648})));
  EXPECT_EQ(shed_->level(), -2147483647 - 1);
  EXPECT_THROW(attrValueIs(*shed_, "level", Value(S64{2147483648})), RangeError);
  EXPECT_THROW(attrValueIs(*shed_, "level", Value(U64{1})), RangeError);
}

TEST_F(GenericAccessTest, absentAttributeOrOperationIsAnError) {
  EXPECT_THROW(attrValue(*garden_, AttrId{1}), InternalError);
  EXPECT_THROW(attrValue(*garden_, "level"), InternalError);
  EXPECT_THROW(attrValueIs(*garden_, "level", Value()), InternalError);
  EXPECT_THROW(call(*shed_, "paint"), InternalError);
  EXPECT_THROW(call(*shed_, "level"), InternalError);
}

TEST_F(GenericAccessTest, everythingThatHoldsNoObjectReads) {
  EXPECT_EQ(attrValue(*shed_, "lamp"), Value(std::string("lit")));
  EXPECT_EQ(attrValue(*shed_, "lock"), Value(false));
  EXPECT_EQ(attrValue(*shed_, "tools"), Value(U64{2}));
  EXPECT_EQ(attrValue(*shed_, "hooks"), Value(U64{3}));
  EXPECT_EQ(attrValue(*shed_, "keys"), Value(std::string()));
  EXPECT_EQ(attrValue(*shed_, "sweep"), Value());
}

TEST_F(GenericAccessTest, aSetReadsAsItsKeysInTheirOrder) {
  for (const U32 key : {9u, 2u, 30u}) shed_->keys().insert(TestKey(key), true);
  EXPECT_EQ(attrValue(*shed_, "keys"), Value(std::string("2, 9, 30")));
}

TEST_F(GenericAccessTest, aHeldObjectIsReachedThroughItsAttribute) {
  const AttrInfo& attr = *shedType_.attr("garden");
  EXPECT_EQ(attr.get, nullptr);
  ASSERT_NE(attr.held, nullptr);
  EXPECT_EQ(attr.held(*shed_), garden_.get());
  EXPECT_EQ(attr.held(*makePtr<Shed>(nullptr)), nullptr);
}

TEST_F(GenericAccessTest, textsAreThoseOfTheValues) {
  EXPECT_EQ(shedType_.attr("level")->text(*shed_), "-1");
  EXPECT_EQ(shedType_.attr("lock")->text(*shed_), "false");
  EXPECT_EQ(garden_->type().attr("name")->text(*garden_), "kew");
  EXPECT_EQ(garden_->type().attr("area")->text(*garden_), "1");
}

TEST_F(GenericAccessTest, rowsShowTheirTypesAndUnits) {
  EXPECT_STREQ(shedType_.attr("garden")->typeName, "Test::Garden");
  EXPECT_STREQ(shedType_.attr("lamp")->typeName, "Test::Lamp");
  EXPECT_STREQ(shedType_.attr("level")->typeName, "S32");
  EXPECT_EQ(shedType_.attr("level")->unit, Unit::bytes);
  EXPECT_EQ(shedType_.attr("level")->value, ValueKind::s32);
  EXPECT_STREQ(shedType_.attr("keys")->typeName, "set");
  EXPECT_STREQ(shedType_.attr("weigh")->typeName, "S32");
  EXPECT_STREQ(shedType_.attr("sweep")->typeName, "");
  EXPECT_STREQ(garden_->type().attr("bed")->typeName, "Test::Bed");
  EXPECT_EQ(garden_->type().attr("area")->unit, Unit::byType);
}

TEST_F(GenericAccessTest, callsAnOperationAndReturnsItsResult) {
  EXPECT_EQ(call(*shed_, "sweep"), Value());
  EXPECT_EQ(shed_->swept_, 1);
  EXPECT_EQ(call(*shed_, "weigh"), Value(S64{-7}));
}

TEST_F(GenericAccessTest, anOperationWithAnArgumentIsCalledWithOneOfItsType) {
  const Call<std::string> take(shedType_, "take");
  EXPECT_EQ(take(*shed_, std::string("rake")), Value());
  take(*shed_, std::string(" hoe"));
  EXPECT_EQ(shed_->taken_, "rake hoe");
}

TEST_F(GenericAccessTest, anOperationIsNotCalledWithoutItsArgumentOrWithAnother) {
  EXPECT_THROW(call(*shed_, "take"), InternalError);
  EXPECT_THROW(Call<int>(shedType_, "take"), InternalError);
  EXPECT_THROW(Call<std::string>(shedType_, "sweep"), InternalError);
  EXPECT_THROW(Call<std::string>(shedType_, "paint"), InternalError);
  EXPECT_THAT(shed_->taken_, IsEmpty());
}

std::string recordOf(const TypeInfo& type) {
  std::string names;
  for (const AttrInfo* attr : type.record()) {
    names += std::to_string(attr->id) + attr->name + ' ';
  }
  return names;
}

TEST_F(GenericAccessTest, recordOfAnEntityBeginsWithItsNameAndTheFrameworksAttributes) {
  EXPECT_EQ(recordOf(typeInfoOf<Bed>()),
            "257name 253fullName 254parent 255parentAttrName 256entity 258place 259wet ");
}

TEST_F(GenericAccessTest, recordOfAnObjectIsItsTable) {
  EXPECT_EQ(recordOf(shedType_),
            "130garden 131lock 132lamp 133level 134tools 135hooks 136keys 137sweep 138weigh "
            "139take ");
}

TEST_F(GenericAccessTest, frameworkAttributesOfAnEntityRead) {
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  EXPECT_EQ(attrValue(*bed, "fullName"), Value(std::string("kew/bed[7]")));
  EXPECT_EQ(attrValue(*bed, AttrId{255}), Value(std::string("bed")));
  EXPECT_EQ(bed->type().attr("parent")->held(*bed), garden_.get());
  EXPECT_EQ(bed->type().attr("entity")->held(*bed), bed.get());
  EXPECT_EQ(garden_->type().attr("parent")->held(*garden_), nullptr);
  EXPECT_EQ(shedType_.attr("fullName"), nullptr);
}

TEST_F(GenericAccessTest, collectionIsFoundByName) {
  EXPECT_EQ(garden_->type().collection("pot")->id, 262u);
  EXPECT_EQ(garden_->type().collection("area"), nullptr);
  EXPECT_EQ(garden_->type().collection("bed")->keyText(12), "12");
}

}  // namespace
}  // namespace Mox
