// The registry in print.
#include <Report/TypeReport.h>

#include <set>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Agent {
namespace {

using testing::HasSubstr;

template <class Print>
std::string printed(Print&& print) {
  char* text = nullptr;
  size_t size = 0;
  std::FILE* out = open_memstream(&text, &size);
  print(out);
  std::fclose(out);
  std::string all(text, size);
  free(text);
  return all;
}

TEST(TypeReportTest, everyTypeHasALine) {
  const std::string all = printed([](std::FILE* out) { printTypes(out, Format::text); });
  size_t types = 0;
  for (const Mox::ModelTypes* model : Mox::loadedModels()) {
    for (const Mox::TypeRecord& record : model->records()) {
      ++types;
      EXPECT_THAT(all, HasSubstr(std::string("\n") + record.name + " "));
    }
  }
  EXPECT_EQ(types, 19u);
  EXPECT_EQ(std::ranges::count(all, '\n'), 20);
  EXPECT_THAT(all, HasSubstr("GmpAttrLogSm"));
}

TEST(TypeReportTest, attributesOfATypeHaveALineEach) {
  const std::string text =
      printed([](std::FILE* out) { printType(out, typeFor("QuerierSourceStatus"), Format::text); });
  EXPECT_EQ(text,
            "ID   NAME            KIND      TYPE          UNIT  WRITABLE\n"
            "257  name            constant  string        -     no\n"
            "253  fullName        derived   string        -     no\n"
            "254  parent          derived   Mox::Entity   -     no\n"
            "255  parentAttrName  derived   string        -     no\n"
            "256  entity          derived   Mox::Entity   -     no\n"
            "258  sourceAddr      key       Ilvo::IpAddr  -     no\n"
            "259  expired         stored    bool          -     yes\n"
            "260  creationTime    stored    Seconds       time  yes\n"
            "261  expiryTime      stored    Seconds       time  yes\n");
}

TEST(TypeReportTest, enumeratorsHaveALineEach) {
  const std::string text =
      printed([](std::FILE* out) { printType(out, typeFor("IgmpFilterMode"), Format::text); });
  EXPECT_THAT(text, HasSubstr("0   filterModeExclude  enumerator"));
  EXPECT_THAT(text, HasSubstr("1   filterModeInclude  enumerator"));
}

TEST(TypeReportTest, jsonHoldsEveryTypeWithItsAttributesInTheOrderOfItsRecord) {
  const auto json =
      nlohmann::json::parse(printed([](std::FILE* out) { printTypes(out, Format::json); }));
  ASSERT_EQ(json.size(), 19u);
  std::set<std::string> types;
  for (const auto& type : json) {
    EXPECT_TRUE(types.insert(type["type"]).second) << type["type"];
    const Mox::TypeRecord& record = *Mox::typeNamed(std::string(type["type"]));
    std::set<std::string> names;
    std::vector<std::string> order;
    for (const auto& attr : type["attributes"]) {
      EXPECT_TRUE(names.insert(attr["name"]).second) << type["type"] << attr["name"];
      order.push_back(attr["name"]);
    }
    EXPECT_FALSE(order.empty()) << type["type"];
    if (record.type == nullptr) continue;
    std::vector<std::string> wanted;
    for (const Mox::AttrInfo* attr : record.type->record()) wanted.emplace_back(attr->name);
    EXPECT_EQ(order, wanted) << type["type"];
  }
}

TEST(TypeReportTest, jsonOfAnAttributeHasEverythingThatTheLineHas) {
  const auto json = nlohmann::json::parse(printed(
      [](std::FILE* out) { printType(out, typeFor("Gmp::Igmp::QuerierSm"), Format::json); }));
  ASSERT_EQ(json.size(), 1u);
  EXPECT_EQ(json[0]["model"], "GmpIgmpQuerierSm");
  for (const auto& attr : json[0]["attributes"]) {
    if (attr["name"] == "mtu") {
      EXPECT_EQ(attr["kind"], "stored");
      EXPECT_EQ(attr["type"], "U32");
      EXPECT_EQ(attr["unit"], "bytes");
      EXPECT_EQ(attr["writable"], true);
    }
    if (attr["name"] == "groupSm") {
      EXPECT_EQ(attr["type"], "Gmp::Igmp::QuerierGroupSm");
    }
    if (attr["name"] == "doRxPkt") {
      EXPECT_EQ(attr["kind"], "operation");
      EXPECT_EQ(attr["parameter"], "Ilvo::Pkt");
    }
    if (attr["name"] == "startupQueryIntervalDefault") {
      EXPECT_EQ(attr["unit"], "seconds");
    }
  }
}

TEST(TypeReportTest, aTypeIsFoundByTheEndOfItsName) {
  EXPECT_STREQ(typeFor("QuerierStatus").name, "Gmp::Igmp::QuerierStatus");
  EXPECT_STREQ(typeFor("QuerierState").name, "Gmp::Igmp::QuerierStatus::QuerierState");
  EXPECT_STREQ(typeFor("QuerierSm::TimerId").name, "Gmp::Igmp::QuerierSm::TimerId");
}

std::string errorOf(const char* name) {
  try {
    return typeFor(name).name;
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

TEST(TypeReportTest, aNameOfNoTypeOrOfSeveralIsAnError) {
  EXPECT_EQ(errorOf("Status"), "there is no type Status: `igmpq types` lists them");
  EXPECT_EQ(errorOf(""), "there is no type : `igmpq types` lists them");
  EXPECT_EQ(errorOf("TimerId"),
            "TimerId can be any of Gmp::Igmp::QuerierSm::TimerId, "
            "Gmp::Igmp::QuerierGroupSm::TimerId");
}

}  // namespace
}  // namespace Agent
