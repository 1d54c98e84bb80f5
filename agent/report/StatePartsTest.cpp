// The state in parts, as an agent with many groups writes it between two batches of packets.
#include <Report/StateReport.h>

#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Agent {
namespace {

using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using testing::HasSubstr;

class StateInPartsTest : public testing::Test {
 protected:
  static constexpr Mox::Seconds now = 1000.0;
  static constexpr size_t rows = 10;
  static constexpr StateParts::PartSize size{.rows = rows, .interfaces = 4};

  static InterfaceView viewOf(const char* name) {
    return {name, IpAddr(10, 0, 0, 1), Gmp::Igmp::querierStatusFactory()};
  }
  static QuerierStatus& status(const InterfaceView& view) {
    return const_cast<QuerierStatus&>(*view.status);
  }
  void join(size_t view, Mox::U32 first, Mox::U32 count) {
    for (Mox::U32 at = first; at < first + count; ++at) {
      status(views_[view]).groupIs(IpAddr(0xef000000u + at));
    }
  }
  static std::vector<std::string> partsOf(StateParts parts) {
    std::vector<std::string> all;
    for (std::string part = parts.next(); !part.empty(); part = parts.next()) all.push_back(part);
    return all;
  }
  std::vector<std::string> parts(Format format) const {
    return partsOf(StateParts(views_, now, format, size));
  }
  // "eth0 239.0.0.1"
  static std::multiset<std::string> groupsIn(const std::vector<std::string>& lines) {
    std::multiset<std::string> groups;
    for (const std::string& line : lines) {
      const auto json = nlohmann::json::parse(line);
      for (const auto& view : json["interfaces"]) {
        for (const auto& group : view["groups"]) {
          groups.insert(view["interface"].get<std::string>() + " " +
                        group["group"].get<std::string>());
        }
      }
    }
    return groups;
  }

  std::vector<InterfaceView> views_{viewOf("eth0"), viewOf("eth1"), viewOf("eth2")};
};

TEST_F(StateInPartsTest, fewGroupsAreOnePartAsInTheWholeReport) {
  join(0, 1, 3);
  join(2, 1, 3);
  EXPECT_EQ(parts(Format::text), std::vector{stateText(StatePart::everything, views_, now)});
  const std::vector<std::string> json = parts(Format::json);
  ASSERT_EQ(json.size(), 1u);
  EXPECT_EQ(nlohmann::json::parse(json[0])["interfaces"],
            nlohmann::json::parse(stateJson(StatePart::everything, views_, now))["interfaces"]);
}

TEST_F(StateInPartsTest, manyGroupsAreLinesOfTheirOwnForPrograms) {
  join(0, 0, 25);
  join(2, 0, 7);
  const std::vector<std::string> lines = parts(Format::json);
  EXPECT_EQ(lines.size(), 4u);
  EXPECT_EQ(groupsIn(lines).size(), 32u);
  EXPECT_EQ(groupsIn(lines).count("eth2 239.0.0.6"), 1u);
  EXPECT_EQ(nlohmann::json::parse(lines[0])["interfaces"].size(), 3u);
  EXPECT_FALSE(nlohmann::json::parse(lines[0]).contains("continued"));
  EXPECT_FALSE(nlohmann::json::parse(lines.back()).contains("more"));
  for (size_t at = 1; at < lines.size(); ++at) {
    EXPECT_EQ(nlohmann::json::parse(lines[at - 1])["more"], true);
    EXPECT_EQ(nlohmann::json::parse(lines[at])["continued"], true);
    EXPECT_LE(groupsIn({lines[at]}).size(), rows);
  }
}

TEST_F(StateInPartsTest, columnsGoOnForPeople) {
  join(0, 100, 25);
  std::string all;
  for (const std::string& part : parts(Format::text)) all += part;
  EXPECT_EQ(all, stateText(StatePart::everything, views_, now));
}

TEST_F(StateInPartsTest, manyInterfacesAreLinesOfTheirOwnForPrograms) {
  for (const char* name : {"eth3", "eth4", "eth5", "eth6", "eth7", "eth8"}) {
    views_.push_back(viewOf(name));
  }
  join(1, 0, 15);
  join(8, 0, 3);
  const std::vector<std::string> lines = parts(Format::json);
  EXPECT_EQ(groupsIn(lines).size(), 18u);
  std::vector<std::string> described;
  for (const std::string& line : lines) {
    const auto json = nlohmann::json::parse(line);
    size_t ofLine = 0;
    for (const auto& view : json["interfaces"]) {
      if (!view.contains("counters")) continue;
      described.push_back(view["interface"]);
      ++ofLine;
    }
    EXPECT_LE(ofLine, 4u);
  }
  std::vector<std::string> names;
  for (const InterfaceView& view : views_) names.push_back(view.name);
  EXPECT_EQ(described, names);
  EXPECT_TRUE(nlohmann::json::parse(lines[0]).contains("more"));
  EXPECT_FALSE(nlohmann::json::parse(lines.back()).contains("more"));
}

// A table of counters for each few of them, as it has a column for each.
TEST_F(StateInPartsTest, manyInterfacesAreSeveralPartsForPeople) {
  for (const char* name : {"eth3", "eth4", "eth5", "eth6", "eth7", "eth8"}) {
    views_.push_back(viewOf(name));
  }
  const std::vector<std::string> texts = parts(Format::text);
  ASSERT_EQ(texts.size(), 5u);
  std::string all;
  for (const std::string& text : texts) all += text;
  const std::string whole = stateText(StatePart::everything, views_, now);
  const size_t interfacesEnd = whole.find("\nCOUNTER");
  EXPECT_EQ(all.substr(0, interfacesEnd), whole.substr(0, interfacesEnd));
  EXPECT_THAT(texts[2], HasSubstr("\nCOUNTER                   eth0  eth1  eth2  eth3\n"));
  EXPECT_THAT(texts[3], HasSubstr("\nCOUNTER                   eth4  eth5  eth6  eth7\n"));
  EXPECT_THAT(texts[4], HasSubstr("\nCOUNTER                   eth8\n"));
}

TEST_F(StateInPartsTest, groupsMayComeAndGoBetweenTwoParts) {
  join(0, 0, 40);
  StateParts parts(views_, now, Format::json, size);
  std::vector<std::string> lines{parts.next()};
  for (Mox::U32 at = 5; at < 15; ++at) status(views_[0]).groupDel(IpAddr(0xef000000u + at));
  join(0, 100, 5);
  for (std::string part = parts.next(); !part.empty(); part = parts.next()) lines.push_back(part);
  const std::multiset<std::string> groups = groupsIn(lines);
  EXPECT_EQ(groups.count("eth0 239.0.0.104"), 1u);
  EXPECT_EQ(groups.count("eth0 239.0.0.12"), 0u);
  for (Mox::U32 at = 15; at < 40; ++at) {
    EXPECT_EQ(groups.count("eth0 239.0.0." + std::to_string(at)), 1u) << at;
  }
}

TEST_F(StateInPartsTest, interfacesWithoutGroupsHaveThatSaid) {
  EXPECT_THAT(parts(Format::text)[0], HasSubstr("\n\nno groups\n\n"));
  views_.clear();
  EXPECT_THAT(parts(Format::text), testing::ElementsAre("no interfaces\n"));
  EXPECT_THAT(parts(Format::json), testing::ElementsAre(HasSubstr("\"interfaces\":[]")));
}

}  // namespace
}  // namespace Agent
