// The type registry: the types of a model are known for as long as it is loaded.
#include <Mox/ModelTypes.h>

#include <memory>
#include <string>

#include <Mox/Errors.h>
#include <Mox/Trace.h>
#include <gtest/gtest.h>

#include "EntityTestSupport.h"

namespace Mox {
namespace {

enum Flavour : U32 { mild = 0, tart = 7 };
constexpr const char* enumerationName(Flavour) { return "Test::Flavour"; }
constexpr auto enumerators(Flavour) {
  return std::array{enumerator(mild, "mild"), enumerator(tart, "tart")};
}
std::string valueToStrep(Flavour taste) { return enumeratorStrep(taste); }

struct Fruit {
  static constexpr const char* valueTypeName = "Test::Fruit";
  bool ripe = false;
  U8 seeds = 3;
  Flavour taste = tart;

  static constexpr FieldTable fields{Field{"ripe", &Fruit::ripe}, Field{"seeds", &Fruit::seeds},
                                     Field{"taste", &Fruit::taste}};
};
std::string valueToStrep(const Fruit& fruit) { return valueStrep(fruit); }

U32 refuse(std::string_view) { fatal("ModelTypesTest.tin", "no fruit of text"); }

class ModelTypesTest : public testing::Test {
 protected:
  void load() {
    model_ = std::make_unique<ModelTypes>(
        "Orchard",
        std::initializer_list<TypeRecord>{entityType<Garden>(), valueType<Fruit>(&refuse),
                                          enumerationType<Flavour>()});
  }
  std::unique_ptr<ModelTypes> model_;
};
using ModelTypesDeathTest = ModelTypesTest;

TEST_F(ModelTypesTest, typesAreKnownWhileTheirModelIsLoaded) {
  EXPECT_EQ(typeNamed("Test::Garden"), nullptr);
  load();
  ASSERT_NE(typeNamed("Test::Garden"), nullptr);
  EXPECT_EQ(typeNamed("Test::Garden")->type, &typeInfoOf<Garden>());
  EXPECT_EQ(typeNamed("Test::Gardens"), nullptr);
  model_.reset();
  EXPECT_EQ(typeNamed("Test::Garden"), nullptr);
}

TEST_F(ModelTypesTest, modelsAreListedInTheOrderOfLoading) {
  const size_t before = loadedModels().size();
  load();
  const ModelTypes other("Kitchen", {entityType<Bed>()});
  ASSERT_EQ(loadedModels().size(), before + 2);
  EXPECT_STREQ(loadedModels()[before]->model(), "Orchard");
  EXPECT_STREQ(loadedModels()[before + 1]->model(), "Kitchen");
}

TEST_F(ModelTypesTest, aNameIsRegisteredOnce) {
  load();
  EXPECT_THROW(ModelTypes("Again", {entityType<Bed>(), entityType<Garden>()}), InternalError);
  EXPECT_THROW(ModelTypes("Twice", {entityType<Bed>(), entityType<Bed>()}), InternalError);
  EXPECT_EQ(typeNamed("Test::Bed"), nullptr);
}

TEST_F(ModelTypesTest, enumerationListsItsNumbersAndNames) {
  load();
  const TypeRecord& taste = *typeNamed("Test::Flavour");
  EXPECT_EQ(taste.kind, TypeKind::enumeration);
  ASSERT_EQ(taste.enumerators.size(), 2u);
  EXPECT_EQ(taste.enumerators[1].number, 7u);
  EXPECT_STREQ(taste.enumerators[1].name, "tart");
  EXPECT_EQ(taste.fromText("tart"), 7u);
  EXPECT_THROW(taste.fromText("bitter"), RangeError);
  const Flavour value = mild;
  EXPECT_EQ(taste.text(&value), "'mild'");
}

TEST_F(ModelTypesTest, valueTypeListsItsFieldsWithTheirTexts) {
  load();
  const TypeRecord& fruit = *typeNamed("Test::Fruit");
  const Fruit value{.ripe = true};
  std::string texts;
  for (const FieldInfo& field : fruit.fields) {
    texts += std::to_string(field.id) + field.name + ":" + field.typeName + "=" +
             field.text(&value) + " ";
  }
  EXPECT_EQ(texts, "1ripe:bool=True 2seeds:U8=3 3taste:Test::Flavour='tart' ");
}

TEST_F(ModelTypesTest, valueReadsAsOneLineWithEveryField) {
  load();
  const Fruit value;
  EXPECT_EQ(typeNamed("Test::Fruit")->text(&value),
            "Value('Test::Fruit', ** {'ripe': False, 'seeds': 3, 'taste': 'tart'})");
}

TEST_F(ModelTypesDeathTest, refusedTextIsAFatalAssertion) {
  load();
  EXPECT_DEATH(typeNamed("Test::Fruit")->fromText("apple"), "no fruit of text");
}

TEST_F(ModelTypesTest, tracesOfAnUnloadedModelAreForgotten) {
  load();
  brevlog().record(3, "ModelTypesTest", 1.0, "a literal of the library");
  model_.reset();
  size_t left = 0;
  brevlog().forEach([&](const Brevlog::Ring::Line&) { ++left; });
  EXPECT_EQ(left, 0u);
}

}  // namespace
}  // namespace Mox
