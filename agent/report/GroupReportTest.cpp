#include <Report/GroupReport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <Report/StateReport.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;
using testing::SizeIs;

class GroupReportTest : public testing::Test {
 protected:
  using Json = nlohmann::json;
  static constexpr Mox::Seconds now = 1000.0;

  void groups(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      const auto group = status_->groupIs(IpAddr((239u << 24) + i));
      group->creationTimeIs(990.0);
      group->expiryTimeIs(1250.0);
    }
  }
  void sources(unsigned group, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      status_->group(IpAddr((239u << 24) + group))->sourceIs(IpAddr((10u << 24) + i));
    }
  }
  // As the state report has them.
  Json all() const { return Json::parse(stateJson(StatePart::groups, {&view_, 1}, now)); }
  size_t partsOfAll() const {
    GroupParts parts(view_);
    std::string text;
    size_t count = 0;
    for (std::string part = parts.next(now); !part.empty(); part = parts.next(now)) {
      text += part;
      ++count;
    }
    EXPECT_EQ(Json::parse(text), all());
    return count;
  }

  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  const InterfaceView view_{"eth0", IpAddr(10, 0, 0, 1), status_};
};

TEST_F(GroupReportTest, anInterfaceIsTheRowOfTheStateReport) {
  groups(2);
  EXPECT_EQ(Json::parse(interfaceJson(view_, now)),
            Json::parse(stateJson(StatePart::interfaces, {&view_, 1}, now)).at(0));
}

TEST_F(GroupReportTest, aGroupHasItsSources) {
  groups(3);
  sources(1, 2);
  const auto group = groupJson(view_, IpAddr(239, 0, 0, 1), now);
  ASSERT_TRUE(group);
  EXPECT_EQ(Json::parse(*group), all().at(1));
  EXPECT_THAT(Json::parse(*group).at("sources"), SizeIs(2));
}

TEST_F(GroupReportTest, aGroupThatIsNotThereIsNothing) {
  groups(1);
  EXPECT_FALSE(groupJson(view_, IpAddr(239, 0, 0, 1), now));
}

TEST_F(GroupReportTest, partsAreOneArray) {
  EXPECT_EQ(partsOfAll(), 1u);
  groups(1);
  EXPECT_EQ(partsOfAll(), 1u);
  groups(1500);
  EXPECT_EQ(partsOfAll(), 3u);
  sources(7, 400);
  EXPECT_EQ(partsOfAll(), 4u);
}

// Whatever begins or ends between two parts: the array stays one.
TEST_F(GroupReportTest, partsAreOneArrayWhileGroupsEnd) {
  groups(1500);
  GroupParts parts(view_);
  std::string text = parts.next(now);
  status_->groupDelAll();
  for (std::string part = parts.next(now); !part.empty(); part = parts.next(now)) text += part;
  EXPECT_THAT(Json::parse(text), SizeIs(500));
}

TEST_F(GroupReportTest, pagesGoOnWhereTheLastEnded) {
  groups(25);
  sources(3, 40);
  Json pages = Json::array();
  std::optional<IpAddr> from = IpAddr();
  for (int i = 0; from; ++i) {
    const GroupPage page = groupPage(view_, *from, 10, now);
    const Json part = Json::parse(page.json);
    EXPECT_THAT(part, SizeIs(i < 2 ? 10 : 5));
    pages.insert(pages.end(), part.begin(), part.end());
    from = page.next;
  }
  EXPECT_EQ(pages, all());
}

TEST_F(GroupReportTest, thePageOfTheLastGroupsHasNoNext) {
  groups(10);
  EXPECT_FALSE(groupPage(view_, IpAddr(), 10, now).next);
  EXPECT_EQ(groupPage(view_, IpAddr(), 9, now).next, IpAddr(239, 0, 0, 9));
  EXPECT_EQ(Json::parse(groupPage(view_, IpAddr(240, 0, 0, 0), 9, now).json), Json::array());
}

}  // namespace
}  // namespace Agent
