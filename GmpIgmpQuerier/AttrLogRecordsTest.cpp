// The records of the four entities, as a peer reads them.
#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include <Mox/ActivityClock.h>
#include <NboAttrLog/Session.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AttrLogTestSupport.h"

namespace Gmp::Igmp {
namespace {

using Mox::U16;
using Mox::U8;
using Mox::NboAttrLog::FrameType;
using Mox::NboAttrLog::InStream;
using Mox::NboAttrLog::Reader;
using Mox::NboAttrLog::Ref;
using testing::ElementsAre;

const IpAddr groupA(0xe6000001u);  // 230.0.0.1
const IpAddr sourceA(0x0a000001u);

// A frame as one line: "+group 230.0.0.1", "-group 230.0.0.1", "robustness=3".
class Lines {
 public:
  void read(std::span<const U8> frame) {
    Reader in(frame);
    const auto type = static_cast<FrameType>(in.u8());
    switch (type) {
      case FrameType::root: return readRoot(in);
      case FrameType::attributes: return readAttributes(in);
      case FrameType::begin: return readMarker(in, "begin ");
      case FrameType::end: return readMarker(in, "end ");
      case FrameType::addition: return readAddition(in);
      case FrameType::removal: return readRemoval(in);
      default: return;
    }
  }
  std::vector<std::string> take() { return std::exchange(lines_, {}); }

 private:
  static const Mox::TypeInfo& typeOf(const Ref& ref, bool config) {
    if (config) return Mox::typeInfoOf<QuerierConfig>();
    const Mox::TypeInfo* type = &Mox::typeInfoOf<QuerierStatus>();
    for (U8 level = 0; level < ref.depth; ++level) type = &type->collections.front().memberType();
    return *type;
  }
  const Mox::TypeInfo& typeOf(const Ref& ref) const { return typeOf(ref, ref.root == config_); }

  void readRoot(Reader& in) {
    const U32 number = in.u32();
    const std::string path(in.text());
    const std::string access = in.u8() == 1 ? " writable " : " readonly ";
    const std::string type(in.text());
    const Mox::Value key = in.argument();
    if (type == QuerierConfig::entityTypeName) config_ = number;
    const auto* name = std::get_if<std::string>(&key);
    lines_.push_back(path + access + type + "(" + (name == nullptr ? "" : *name) + ")");
  }
  void readAttributes(Reader& in) {
    const Ref ref = in.ref();
    while (!in.atEnd()) {
      const Mox::AttrInfo* attr = typeOf(ref).attr(Mox::AttrId{in.u16()});
      ASSERT_NE(attr, nullptr);
      lines_.push_back(std::to_string(attr->id) + "=" + textOf(in.value(attr->value)));
      ASSERT_TRUE(in.ok());
    }
  }
  void readMarker(Reader& in, const std::string& what) {
    in.ref();
    const std::string id = std::to_string(in.u16());
    lines_.push_back(what + id + " " + std::to_string(in.u8()));
  }
  void readAddition(Reader& in) {
    const Ref ref = in.ref();
    const std::string id = std::to_string(in.u16());
    EXPECT_EQ(in.text(), typeOf(ref).name);
    lines_.push_back("+" + id + " " + IpAddr(in.u32()).stringValue());
    EXPECT_TRUE(in.complete());
  }
  void readRemoval(Reader& in) {
    in.ref();
    const std::string id = std::to_string(in.u16());
    lines_.push_back("-" + id + " " + IpAddr(in.u32()).stringValue());
  }
  static std::string textOf(const Mox::Value& value) {
    if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
    if (const auto* number = std::get_if<Mox::U64>(&value)) return std::to_string(*number);
    if (const auto* seconds = std::get_if<double>(&value)) return std::to_string(*seconds);
    return std::get<std::string>(value);
  }

  std::vector<std::string> lines_;
  U32 config_ = 0;
};

class AttrLogRecordsTest : public testing::Test {
 protected:
  AttrLogRecordsTest() {
    Mox::virtualTimeIs(1000.0);
    status_ = querierStatusFactory();
  }
  ~AttrLogRecordsTest() override { Mox::realTimeIs(); }

  // Serves the entities to a peer that has taken everything.
  void connect(size_t bufferBytes = Mox::NboAttrLog::OutStream::defaultCapacity) {
    server_ = std::make_unique<Session>(host_,
                                        Session::Setup{.name = "agent",
                                                       .peerName = "copy",
                                                       .rights = Rights::configure,
                                                       .bufferBytes = bufferBytes},
                                        &directory_);
    Session peer(copies_, {.name = "copy", .peerName = "agent"});
    const auto hello = peer.stream().pending();
    ASSERT_TRUE(server_->input(hello));
  }
  void serveStatus(size_t bufferBytes = Mox::NboAttrLog::OutStream::defaultCapacity) {
    directory_.entryIs("status/vlan10", status_, Access::readOnly);
    connect(bufferBytes);
    lines();
  }
  // Builds the frames that are left over, and reads all of them.
  std::vector<std::string> lines() {
    for (server_->drain(); !server_->stream().pending().empty(); server_->drain()) takeBuilt();
    return lines_.take();
  }
  void takeBuilt() {
    const auto waiting = server_->stream().pending();
    EXPECT_TRUE(in_.take(waiting, [&](std::span<const U8> frame) {
      lines_.read(frame);
      return true;
    }));
    server_->stream().taken(waiting.size());
  }
  // Fills the stream; then the peer takes it, so that only what follows is left over.
  void stall() {
    for (U32 hop = 1; server_->stream().sufficientBuffer(); ++hop) {
      status_->otherPacketReceivedIs(hop);
    }
  }
  std::vector<std::string> remembered() {
    takeBuilt();
    lines_.take();
    return lines();
  }

  ServeHost host_;
  CopyHost copies_;
  Directory directory_;
  Ptr<QuerierConfig> config_ = querierConfigFactory("vlan10");
  Ptr<QuerierStatus> status_;
  std::unique_ptr<Session> server_;
  InStream in_;
  Lines lines_;
};

TEST_F(AttrLogRecordsTest, configurationIsAnnouncedWithItsNameAndSentInTheOrderOfIdentifiers) {
  directory_.entryIs("config/vlan10", config_, Access::configurable);
  connect();
  EXPECT_THAT(lines(),
              ElementsAre("config/vlan10 writable Gmp::Igmp::QuerierConfig(vlan10)", "258=2",
                          "259=125.000000", "260=10.000000", "261=0.000000", "262=2",
                          "263=1.000000", "264=2", "265=2", "267=false", "268=true"));
}

TEST_F(AttrLogRecordsTest, statusIsAnnouncedWithoutArgumentAndSentInTheOrderOfIdentifiers) {
  directory_.entryIs("status/vlan10", status_, Access::readOnly);
  connect();
  EXPECT_THAT(lines(), ElementsAre("status/vlan10 readonly Gmp::Igmp::QuerierStatus()", "258=0",
                                   "259=0", "begin 260 1", "end 260 1", "261=1000.000000", "262=0",
                                   "263=0", "264=2", "265=125.000000", "266=10.000000",
                                   "267=31.250000", "271=0.000000", "272=0.000000", "273=0",
                                   "274=0", "275=0", "276=0", "277=0", "279=0", "280=0", "281=0",
                                   "282=0", "283=0", "284=0", "285=0", "286=0", "287=0", "288=0"));
}

TEST_F(AttrLogRecordsTest, groupAndSourceAreMembersWithTheirAddressesAsKeys) {
  serveStatus();
  status_->groupIs(groupA)->sourceIs(sourceA);
  EXPECT_THAT(lines(), ElementsAre("+260 230.0.0.1", "259=1", "begin 260 1", "end 260 1", "261=3",
                                   "262=0.000000", "263=0.000000", "264=0", "+260 10.0.0.1",
                                   "259=false", "260=0.000000", "261=0.000000"));
}

TEST_F(AttrLogRecordsTest, sourcesStandWhereTheirIdentifierPutsThem) {
  status_->groupIs(groupA)->sourceIs(sourceA)->expiredIs(true);
  directory_.entryIs("status/vlan10", status_, Access::readOnly);
  connect();
  const auto all = lines();
  const auto group = std::ranges::find(all, "+260 230.0.0.1");
  ASSERT_GE(all.end() - group, 12);
  EXPECT_THAT(std::vector<std::string>(group, group + 12),
              ElementsAre("+260 230.0.0.1", "259=1", "begin 260 1", "+260 10.0.0.1", "259=true",
                          "260=0.000000", "261=0.000000", "end 260 1", "261=3", "262=0.000000",
                          "263=0.000000", "264=0"));
}

TEST_F(AttrLogRecordsTest, threeChangesOfACounterWhileFullAreOneRecordWithTheThird) {
  serveStatus();
  stall();
  for (int query = 0; query < 3; ++query) status_->v1QueriesSentInc(1);
  EXPECT_THAT(remembered(), ElementsAre("273=3"));
}

TEST_F(AttrLogRecordsTest, groupAddedAndRemovedWhileFullIsOnlyRemoved) {
  serveStatus();
  stall();
  status_->groupIs(groupA);
  status_->groupDel(groupA);
  EXPECT_THAT(remembered(), ElementsAre("begin 260 0", "-260 230.0.0.1", "end 260 0"));
}

TEST_F(AttrLogRecordsTest, sourceAddedAndRemovedWhileFullIsOnlyRemoved) {
  const Ptr<QuerierGroupStatus> group = status_->groupIs(groupA);
  serveStatus();
  stall();
  group->sourceIs(sourceA);
  group->sourceDel(sourceA);
  EXPECT_THAT(remembered(), ElementsAre("begin 260 0", "-260 10.0.0.1", "end 260 0"));
}

TEST_F(AttrLogRecordsTest, removedGroupSpeaksOfItsSourcesNoMore) {
  status_->groupIs(groupA)->sourceIs(sourceA);
  serveStatus();
  status_->groupDel(groupA);
  EXPECT_THAT(lines(), ElementsAre("-260 230.0.0.1"));
}

TEST_F(AttrLogRecordsTest, interruptedDrainGoesOnAtTheNextGroupInAddressOrder) {
  serveStatus(Mox::NboAttrLog::OutStream::leastCapacity);
  stall();
  for (U32 host = 40; host >= 1; --host) status_->groupIs(IpAddr(0xef000000u + host));
  takeBuilt();
  lines_.take();
  std::vector<std::string> groups;
  std::vector<std::string> ends;
  while (!server_->allSent()) {
    server_->drain();
    takeBuilt();
    const auto some = lines_.take();
    for (const std::string& line : some) {
      if (line.starts_with("+260 239.")) groups.push_back(line);
    }
    ends.push_back(some.back());
  }
  ASSERT_GT(ends.size(), 2u);  // it was interrupted
  EXPECT_EQ(ends.front(), "end 260 2");
  ASSERT_EQ(groups.size(), 40u);
  for (U32 host = 1; host <= 40; ++host) {
    EXPECT_EQ(groups[host - 1], "+260 " + IpAddr(0xef000000u + host).stringValue());
  }
}

TEST_F(AttrLogRecordsTest, derivedAttributesAreNotSentWhenWhatTheyAreMadeOfChanges) {
  serveStatus();
  status_->robustnessIs(3);
  status_->v2QueriesSentInc(1);
  EXPECT_THAT(lines(), ElementsAre("264=3", "274=1"));
}

TEST_F(AttrLogRecordsTest, lastMemberQueryTimeIsNotSent) {
  directory_.entryIs("config/vlan10", config_, Access::configurable);
  connect();
  lines();
  config_->lastMemberQueryCountIs(3);
  EXPECT_THAT(lines(), ElementsAre("265=3"));
}

TEST(AttrLogEntitiesTest, receivedConfigurationIsNotSentBack) {
  Directory directory;
  CopyHost copies;
  const Ptr<QuerierConfig> config = querierConfigFactory("vlan10");
  directory.entryIs("config/vlan10", config, Access::configurable);
  AttrLogLine line(directory, copies, Rights::configure);
  line.settle();
  config->robustnessIs(5);
  EXPECT_FALSE(line.server().stream().pending().empty());
  line.carry(AttrLogLine::everything);
  EXPECT_EQ(copies.copy<QuerierConfig>("config/vlan10")->robustness(), 5u);
  EXPECT_TRUE(line.copy().stream().pending().empty());
  EXPECT_TRUE(line.copy().allSent());
}

TEST(AttrLogEntitiesTest, peerWithRightsConfiguresThroughItsCopy) {
  Directory directory;
  CopyHost copies;
  const Ptr<QuerierConfig> config = querierConfigFactory("vlan10");
  directory.entryIs("config/vlan10", config, Access::configurable);
  AttrLogLine line(directory, copies, Rights::configure);
  line.settle();
  const Ptr<QuerierConfig> copy = copies.copy<QuerierConfig>("config/vlan10");
  copy->querierVersionIs(igmpVersion3);
  copy->queryIntervalIs(60.0);
  copy->sendQueryIs(false);
  line.settle();
  EXPECT_EQ(config->querierVersion(), igmpVersion3);
  EXPECT_EQ(config->queryInterval(), 60.0);
  EXPECT_FALSE(config->sendQuery());
}

TEST(AttrLogEntitiesTest, statusCopyIsReadOnly) {
  Directory directory;
  CopyHost copies;
  const Ptr<QuerierStatus> status = querierStatusFactory();
  status->groupIs(groupA)->sourceIs(sourceA);
  directory.entryIs("status/vlan10", status, Access::readOnly);
  AttrLogLine line(directory, copies, Rights::configure);
  line.settle();
  const Ptr<QuerierStatus> copy = copies.copy<QuerierStatus>("status/vlan10");
  const auto errorOf = [](const std::function<void()>& write) -> std::string {
    try {
      write();
    } catch (const Mox::ReadOnlyError& error) {
      return error.what();
    }
    return "no error";
  };
  EXPECT_EQ(errorOf([&] { copy->joinsInc(1); }), "attribute joins is read-only");
  EXPECT_EQ(errorOf([&] { copy->groupIs(IpAddr(0xe6000002u)); }), "attribute group is read-only");
  EXPECT_EQ(errorOf([&] { copy->group(groupA)->sourceDel(sourceA); }),
            "attribute source is read-only");
}

TEST(AttrLogEntitiesTest, valueThatNoVersionHasEndsTheConnection) {
  Directory directory;
  CopyHost copies;
  const Ptr<QuerierConfig> config = querierConfigFactory("vlan10");
  directory.entryIs("config/vlan10", config, Access::configurable);
  AttrLogLine line(directory, copies, Rights::configure);
  line.settle();
  const U8 version4[] = {0, 12, 4, 0, 0, 0, 1, 0, 1, 8, 0, 0, 0, 4};
  EXPECT_FALSE(line.server().input(version4));
  EXPECT_EQ(line.server().fault(), "querierVersion: Gmp::Igmp::IgmpVersion has no value 4");
  EXPECT_EQ(config->querierVersion(), igmpVersion2);
}

TEST(AttrLogEntitiesTest, groupsThatWentWhileThePeerWasAwayAreGoneFromItsCopy) {
  Directory directory;
  CopyHost copies;
  const Ptr<QuerierStatus> status = querierStatusFactory();
  status->groupIs(groupA)->sourceIs(sourceA);
  status->groupIs(IpAddr(0xe6000002u))->sourceIs(sourceA);
  directory.entryIs("status/vlan10", status, Access::readOnly);
  AttrLogLine(directory, copies).settle();
  status->groupDel(groupA);
  status->group(IpAddr(0xe6000002u))->sourceDel(sourceA);
  AttrLogLine(directory, copies).settle();
  EXPECT_EQ(described(*copies.copy<QuerierStatus>("status/vlan10")), described(*status));
}

}  // namespace
}  // namespace Gmp::Igmp
