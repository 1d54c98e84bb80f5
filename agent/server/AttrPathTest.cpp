#include "AttrPath.h"

#include <string>
#include <variant>
#include <vector>

#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Ilvo/IpAddr.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::makePtr;
using Mox::Ptr;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class AttrPathTest : public testing::Test {
 protected:
  AttrPathTest() {
    const auto group = status_->groupIs(IpAddr(239, 1, 1, 1));
    group->expiryTimeIs(1260.5);
    group->sourceIs(IpAddr(10, 0, 0, 9))->expiredIs(true);
    status_->groupIs(IpAddr(224, 0, 1, 5))->expiryTimeIs(Mox::never);
  }
  PathContent read(const std::string& path) const { return read(roots_, path); }
  static PathContent read(const ObjectRoots& roots, const std::string& path) {
    PathTarget target = readPath(roots, path);
    if (const auto* content = std::get_if<PathContent>(&target)) return *content;
    auto& walk = std::get<KeyWalk>(target);
    while (walk.step()) continue;
    PathContent content{nlohmann::ordered_json::array(), {}};
    for (const Mox::U32 key : walk.keys()) {
      content.value.push_back(walk.collection().keyText(key));
    }
    content.text = content.value;
    return content;
  }
  std::vector<std::string> completions(const std::string& prefix) const {
    Completion completion(roots_, prefix);
    while (completion.step()) continue;
    return completion.paths();
  }
  std::string text(const std::string& path) const { return read(path).text.dump(); }
  std::string value(const std::string& path) const { return read(path).value.dump(); }
  std::string error(const std::string& path) const {
    try {
      return "no error, but " + value(path);
    } catch (const PathError& e) {
      return e.what();
    }
  }

  const Ptr<QuerierConfig> config_ = makePtr<QuerierConfig>("eth0");
  const Ptr<QuerierStatus> status_ = makePtr<QuerierStatus>();
  const Ptr<Gmp::Igmp::GmpAttrLogSm> monitor_ = Gmp::Igmp::gmpAttrLogSmFactory(nullptr);
  const ObjectRoots roots_{
      {"config/eth0", config_}, {"status/eth0", status_}, {"attrLogSm", monitor_}};
};

TEST_F(AttrPathTest, valueReadsAsANumberForProgramsAndAsATextForPeople) {
  EXPECT_EQ(value("config/eth0/queryInterval"), "125.0");
  EXPECT_EQ(text("config/eth0/queryInterval"), "\"125\"");
  EXPECT_EQ(value("config/eth0/robustness"), "2");
  EXPECT_EQ(value("config/eth0/sendQuery"), "true");
  EXPECT_EQ(value("attrLogSm/attrLogSockFd"), "-1");
}

TEST_F(AttrPathTest, enumeratorsAndAddressesReadAsTheirTexts) {
  EXPECT_EQ(value("config/eth0/querierVersion"), "\"igmpVersion2\"");
  EXPECT_EQ(value("status/eth0/electedQuerierAddr"), "\"0.0.0.0\"");
  EXPECT_EQ(text("status/eth0/state"), "\"querierStateInitial\"");
}

TEST_F(AttrPathTest, timeThatIsNeverReachedIsNullForPrograms) {
  EXPECT_EQ(value("status/eth0/group[224.0.1.5]/expiryTime"), "null");
  EXPECT_EQ(text("status/eth0/group[224.0.1.5]/expiryTime"), "\"inf\"");
}

TEST_F(AttrPathTest, membersAreReachedByTheirKeys) {
  EXPECT_EQ(value("status/eth0/group[239.1.1.1]/expiryTime"), "1260.5");
  EXPECT_EQ(value("status/eth0/group[239.1.1.1]/source[10.0.0.9]/expired"), "true");
}

TEST_F(AttrPathTest, collectionReadsAsItsKeysInOrder) {
  EXPECT_EQ(value("status/eth0/group"), R"(["224.0.1.5","239.1.1.1"])");
}

TEST_F(AttrPathTest, collectionWithoutAnOrderReadsAsItsLowestKeysInOrder) {
  const auto group = status_->group(IpAddr(239, 1, 1, 1));
  for (Mox::U32 n = 0; n < mostKeys + 5000; ++n) group->sourceIs(IpAddr(0x0a000000u + n));
  const PathContent content = read("status/eth0/group[239.1.1.1]/source");
  ASSERT_EQ(content.value.size(), mostKeys);
  EXPECT_EQ(content.value[0], "10.0.0.0");
  EXPECT_EQ(content.value[mostKeys - 1], "10.0.39.15");
}

TEST_F(AttrPathTest, keysAreReadThoughTheirObjectIsRemovedMeanwhile) {
  const auto target = [&] { return readPath(roots_, "status/eth0/group[239.1.1.1]/source"); };
  PathTarget before = target();
  status_->groupDel(IpAddr(239, 1, 1, 1));
  auto& walk = std::get<KeyWalk>(before);
  while (walk.step()) continue;
  EXPECT_LE(walk.keys().size(), 1u);
  EXPECT_THROW(target(), PathError);
}

TEST_F(AttrPathTest, objectReadsWithAllItsAttributesInTheOrderOfItsRecord) {
  const PathContent content = read("status/eth0/group[239.1.1.1]/source[10.0.0.9]");
  EXPECT_EQ(content.value.dump(),
            R"({"name":"","fullName":"Gmp::Igmp::QuerierStatus/group[239.1.1.1]/source[10.0.0.9]",)"
            R"("parent":"Gmp::Igmp::QuerierStatus/group[239.1.1.1]","parentAttrName":"source",)"
            R"("entity":"Gmp::Igmp::QuerierStatus/group[239.1.1.1]/source[10.0.0.9]",)"
            R"("sourceAddr":"10.0.0.9","expired":true,"creationTime":0.0,"expiryTime":0.0})");
  EXPECT_EQ(content.text["expired"], "true");
}

TEST_F(AttrPathTest, objectCountsTheMembersOfItsCollections) {
  EXPECT_EQ(read("status/eth0").value["group"], 2);
  EXPECT_EQ(read("status/eth0").text["group"], "2 members");
  EXPECT_EQ(read("status/eth0/group[239.1.1.1]").text["source"], "1 member");
}

TEST_F(AttrPathTest, operationsAreNotAmongTheAttributesOfAnObject) {
  EXPECT_FALSE(read("attrLogSm").value.contains("isAttrLogClogged"));
  EXPECT_EQ(read("attrLogSm").value["maxIterUntilBufferCheck"], 10);
}

TEST_F(AttrPathTest, pathsLeadThroughObjectsThatAreHeld) {
  EXPECT_EQ(value("status/eth0/group[239.1.1.1]/parent/joins"), "0");
  EXPECT_EQ(value("status/eth0/group[239.1.1.1]/entity/groupAddr"), "\"239.1.1.1\"");
}

TEST_F(AttrPathTest, emptyPathReadsAsTheRoots) {
  EXPECT_EQ(value(""), R"(["config/eth0","status/eth0","attrLogSm"])");
}

TEST_F(AttrPathTest, errorOfAPathThatLeadsNowhereListsWhatThereIs) {
  EXPECT_EQ(error("config/eth1"),
            "nothing is at \"config/eth1\": paths begin with one of config/eth0, status/eth0, "
            "attrLogSm");
  EXPECT_THAT(error("config/eth0x"), HasSubstr("nothing is at"));
  EXPECT_THAT(error("config/eth0/robust"),
              HasSubstr("has no attribute \"robust\": it has name, fullName, parent"));
  EXPECT_EQ(error("config/eth0/robustness/x"), "robustness is a value: nothing is below it");
  EXPECT_EQ(error("config/eth0/robustness[1]"), "robustness is a value: nothing is below it");
  EXPECT_EQ(error("status/eth0/group/joins"), "group is a collection: name a member, group[KEY]");
  EXPECT_EQ(error("status/eth0/group[239.9.9.9]"),
            "Gmp::Igmp::QuerierStatus has no group[239.9.9.9]");
  EXPECT_EQ(error("status/eth0/group[x]"), "group: \"x\" is no key");
  EXPECT_EQ(error("status/eth0/group[239.1.1.1"), "a ] is missing after \"group[239.1.1.1\"");
  EXPECT_EQ(error("status/eth0/parent"), "parent holds nothing now");
  EXPECT_EQ(error("attrLogSm/isAttrLogClogged"),
            "isAttrLogClogged is an operation and has no value; `igmpq call --help` lists those "
            "that can be called");
  EXPECT_THAT(error("config/eth0//robustness"), HasSubstr("has no attribute \"\""));
}

TEST_F(AttrPathTest, completesRoots) {
  EXPECT_THAT(completions("co"), ElementsAre("config/eth0"));
  EXPECT_THAT(completions(""), ElementsAre("config/eth0", "status/eth0", "attrLogSm"));
  EXPECT_THAT(completions("x"), IsEmpty());
}

TEST_F(AttrPathTest, completesAttributesAndKeys) {
  EXPECT_THAT(completions("config/eth0/ro"), ElementsAre("config/eth0/robustness"));
  EXPECT_THAT(completions("status/eth0/gro"),
              ElementsAre("status/eth0/group", "status/eth0/group[224.0.1.5]",
                          "status/eth0/group[239.1.1.1]", "status/eth0/groupMembershipInterval"));
  EXPECT_THAT(completions("status/eth0/group[239.1.1.1]/source["),
              ElementsAre("status/eth0/group[239.1.1.1]/source[10.0.0.9]"));
}

TEST_F(AttrPathTest, completesAnObjectWithItselfAndItsAttributes) {
  const std::vector<std::string> all = completions("config/eth0");
  EXPECT_THAT(all, Contains("config/eth0"));
  EXPECT_THAT(all, Contains("config/eth0/robustness"));
  EXPECT_THAT(completions("attrLogSm/"), Not(Contains("attrLogSm/isAttrLogClogged")));
}

TEST_F(AttrPathTest, completesNothingBelowAMissingMember) {
  EXPECT_THAT(completions("status/eth0/group[239.9.9.9]/so"), IsEmpty());
  EXPECT_THAT(completions("config/eth0/robustness/"), IsEmpty());
}

TEST_F(AttrPathTest, setsReadAsTheirKeysAndEveryAttributeOfAMachineReads) {
  const auto wheel = makePtr<Obel::TimerWheel>(0.0);
  const auto querier = Gmp::Igmp::querierSmFactory(config_, status_, IpAddr(10, 0, 0, 2), 1500, 0,
                                                   wheel, wheel, wheel, false);
  querier->pendingRexmitIs(IpAddr(239, 1, 1, 1), true);
  const ObjectRoots roots{{"querierSm/eth0", querier}};
  EXPECT_EQ(read(roots, "querierSm/eth0/pendingRexmit").value.dump(), R"(["239.1.1.1"])");
  EXPECT_EQ(read(roots, "querierSm/eth0").text["pendingRexmit"], "1 member");
  EXPECT_THROW(readPath(roots, "querierSm/eth0/pendingRexmit[239.1.1.1]"), PathError);
  size_t attributes = 0;
  for (const Mox::AttrInfo& attr : querier->type().attrs) {
    if (attr.call != nullptr) continue;
    if (attr.held != nullptr && attr.held(*querier) == nullptr) continue;
    EXPECT_FALSE(
        AttrPathTest::read(roots, std::string("querierSm/eth0/") + attr.name).text.is_null())
        << attr.name;
    ++attributes;
  }
  EXPECT_GT(attributes, 20u);
}

TEST_F(AttrPathTest, completionsHaveAnEnd) {
  for (Mox::U32 n = 0; n < 2 * mostCompletions; ++n) status_->groupIs(IpAddr(0xe8000000u + n));
  EXPECT_EQ(completions("status/eth0/group[").size(), mostCompletions);
}

}  // namespace
}  // namespace Agent
