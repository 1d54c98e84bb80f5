#include <Text/Table.h>

#include <gtest/gtest.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;

std::string textOf(const Table& table) {
  std::string text;
  table.appendText(text);
  return text;
}

std::string jsonOf(const Table& table, Table::Lines lines = Table::Lines::one) {
  std::string json;
  table.appendJson(json, lines);
  return json;
}

TEST(Table, hasAFormOfEachKindOfCellForPeopleAndForPrograms) {
  Table table({{"a", "A"}, {"b", "B"}, {"c", "C"}, {"d", "D"}, {"e", "E"}, {"f", "F"}});
  table.row({{},
             Flag{true, "on", "off"},
             Mox::U64{18446744073709551615u},
             IpAddr(10, 0, 0, 1),
             Duration{250.25},
             "x\"y"});
  table.row({{}, Flag{false, "on", "off"}, Mox::U64{0}, IpAddr(), Duration{Mox::never}, ""});
  EXPECT_EQ(textOf(table),
            "A  B    C                     D         E      F\n"
            "-  on   18446744073709551615  10.0.0.1  4m10s  x\"y\n"
            "-  off  0                     0.0.0.0   -      \n");
  EXPECT_EQ(jsonOf(table),
            R"([{"a":null,"b":true,"c":18446744073709551615,"d":"10.0.0.1","e":250.25,)"
            R"("f":"x\"y"},{"a":null,"b":false,"c":0,"d":"0.0.0.0","e":null,"f":""}])");
}

TEST(Table, aColumnMayBeForOneOfThemAlone) {
  Table table({{"key"}, {nullptr, "HEADING"}, {"both", "BOTH"}});
  table.row({Mox::U64{1}, Mox::U64{2}, Mox::U64{3}});
  EXPECT_EQ(textOf(table), "HEADING  BOTH\n2        3\n");
  EXPECT_EQ(jsonOf(table), R"([{"key":1,"both":3}])");
}

TEST(Table, columnsOfOneObjectAreInsideIt) {
  Table table({{"a"}, {"b", nullptr, "in"}, {"c", nullptr, "in"}, {"d", nullptr, "too"}, {"e"}});
  table.row({Mox::U64{1}, Mox::U64{2}, Mox::U64{3}, Mox::U64{4}, Mox::U64{5}});
  EXPECT_EQ(jsonOf(table), R"([{"a":1,"in":{"b":2,"c":3},"too":{"d":4},"e":5}])");
}

TEST(Table, rowsBelowStandUnderTheHeadingsThatTheyShare) {
  Table table({{"where", "WHERE"}, {"name", "NAME"}, {"size", "SIZE"}, {"age", "AGE"}});
  table.belowIs("parts", {{"part", "NAME"}, {"age", "AGE"}});
  table.row({"here", "whole", Mox::U64{7}, Duration{1.0}});
  table.below().row({"first", Duration{2.0}});
  table.below().row({"second", Duration{3.0}});
  table.row({"there", "other", Mox::U64{1}, Duration{4.0}});
  EXPECT_EQ(textOf(table),
            "WHERE  NAME      SIZE  AGE\n"
            "here   whole     7     1.0s\n"
            "here     first         2.0s\n"
            "here     second        3.0s\n"
            "there  other     1     4.0s\n");
  EXPECT_EQ(jsonOf(table),
            R"([{"where":"here","name":"whole","size":7,"age":1.0,"parts":[{"part":"first",)"
            R"("age":2.0},{"part":"second","age":3.0}]},{"where":"there","name":"other","size":1,)"
            R"("age":4.0,"parts":[]}])");
}

TEST(Table, mayBeTurned) {
  Table table({{"name", "NAME"}, {"hidden"}, {"size", "SIZE"}});
  table.row({"first", {}, Mox::U64{1}});
  table.row({"second", {}, Mox::U64{22}});
  std::string text;
  table.appendTurnedText(text);
  EXPECT_EQ(text, "NAME  first  second\nSIZE  1      22\n");
}

TEST(Table, ofManyLinesHasAnObjectInEach) {
  Table table(std::vector<Table::Column>{{"a", "A"}});
  EXPECT_EQ(jsonOf(table, Table::Lines::each), "[]");
  table.row({Mox::U64{1}});
  table.row({Mox::U64{2}});
  EXPECT_EQ(jsonOf(table, Table::Lines::each), "[\n{\"a\":1},\n{\"a\":2}\n]");
}

}  // namespace
}  // namespace Agent
