#include <Text/Json.h>

#include <gtest/gtest.h>

#include <Text/WallClock.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;

TEST(JsonObject, hasItsKeysInTheOrderInWhichTheyWereAdded) {
  JsonObject inner;
  inner.flag("on", true).null("none");
  JsonObject json;
  json.text("b", "x\"y")
      .number("a", 7)
      .seconds("s", 12.5)
      .object("inner", inner)
      .flag("off", false);
  EXPECT_EQ(json.line(),
            R"({"b":"x\"y","a":7,"s":12.5,"inner":{"on":true,"none":null},"off":false})");
}

TEST(JsonObject, mayBeEmpty) { EXPECT_EQ(JsonObject().line(), "{}"); }

TEST(JsonObject, writesAddressesAndNoneAsNull) {
  const std::vector<IpAddr> two{IpAddr(10, 0, 0, 1), IpAddr(10, 0, 0, 2)};
  JsonObject json;
  json.address("a", IpAddr()).knownAddress("b", IpAddr()).knownAddress("c", two[0]);
  json.addresses("d", two).addresses("e", {});
  EXPECT_EQ(json.line(), R"({"a":"0.0.0.0","b":null,"c":"10.0.0.1","d":["10.0.0.1","10.0.0.2"],)"
                         R"("e":[]})");
}

TEST(JsonObject, writesATimeOnBothClocks) {
  wallClockDifferenceIs(1'795'268'601.0);
  JsonObject json;
  json.times(0.5);
  wallClockDifferenceIs({});
  EXPECT_EQ(json.line(), R"({"time":0.5,"utc":"2026-11-21T13:43:21.500000Z"})");
}

TEST(JsonObject, hasNoWallClockTimeBeyondTheYear9999) {
  wallClockDifferenceIs(1e12);
  JsonObject json;
  json.times(0.5);
  wallClockDifferenceIs({});
  EXPECT_EQ(json.line(), R"({"time":0.5,"utc":null})");
}

std::string secondsText(Mox::Seconds seconds) {
  std::string out;
  appendJson(out, seconds);
  return out;
}

TEST(JsonSeconds, areRoundedToTheMicrosecond) {
  EXPECT_EQ(secondsText(0.1 + 0.2), "0.3");
  EXPECT_EQ(secondsText(1000.0), "1000.0");
  EXPECT_EQ(secondsText(-1e-9), "0.0");
  EXPECT_EQ(secondsText(Mox::never), "null");
}

TEST(JsonText, bytesThatAreNoUtf8AreReplacedSoThatEveryLineParses) {
  std::string out;
  appendJson(out, std::string_view("e\xff\n"));
  EXPECT_EQ(out, "\"e\xef\xbf\xbd\\n\"");
}

}  // namespace
}  // namespace Agent
