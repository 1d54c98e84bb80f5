// Every record as literal bytes, as doc/attribute-log.md describes them.
#include <NboAttrLog/EntitySa.h>

#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EntitySaTest : public ServingTest {};

TEST_F(EntitySaTest, helloCarriesMagicVersionClockRightsAndName) {
  serve(Rights::configure);
  EXPECT_EQ(hexOf(session_->stream().pending()),
            hexOf(bytesOf("0017 01 4d6f784c 0001 408f400000000000 01 0005 6167656e74")));
}

TEST_F(EntitySaTest, peerIsSentEverythingInTheOrderOfIdentifiers) {
  directory_.entryIs("root/a", root_, Access::readOnly);
  serve();
  takeWithoutDraining();
  ASSERT_TRUE(send(helloFrame));
  EXPECT_EQ(take(),
            framesOf({rootFrame, "04 00000001 00 0102 00 0103 00000000", "05 00000001 00 0104 01",
                      "08 00000001 00 0104 01", restOfRoot, currentFrame}));
}

TEST_F(EntitySaTest, announcementNamesPathRightTypeAndConstructionArgument) {
  OutStream out;
  FlowOut flow;
  EntitySa(out, *root_, flow, {.root = 9}).doSerializeOrphan("x", true);
  EXPECT_EQ(hexOf(out.pending()),
            hexOf(bytesOf("0019 02 00000009 0001 78 01 000a 546573743a3a526f6f74 05 0001 61")));
}

// A type without a construction argument.
class Nameless final : public Entity<Nameless> {
 public:
  static constexpr const char* entityTypeName = "Test::Nameless";
  class NotifieeConst : public NotifieeOf<Nameless> {};
  std::string name() const { return {}; }

 private:
  friend class Entity<Nameless>;

 public:
  static constexpr AttrTable attributes{Constant{"name", &Nameless::name}};
};

TEST_F(EntitySaTest, announcementWithoutConstructionArgumentSaysSo) {
  OutStream out;
  FlowOut flow;
  const Ptr<Nameless> nameless = makePtr<Nameless>();
  EntitySa(out, *nameless, flow, {.root = 2}).doSerializeOrphan("n", false);
  EXPECT_EQ(hexOf(out.pending()),
            hexOf(framed("02 00000002 0001 6e 00" + textHex("Test::Nameless") + "00")));
}

TEST_F(EntitySaTest, constructionArgumentOfThirtyTwoBitsIsOfTheSecondKind) {
  OutStream out;
  FlowOut flow;
  const Ptr<Leaf> leaf = makePtr<Leaf>(Number(0xe8000001u));
  EntitySa(out, *leaf, flow, {.root = 2}).doSerializeOrphan("p", false);
  EXPECT_EQ(hexOf(out.pending()),
            hexOf(framed("02 00000002 0001 70 00" + textHex("Test::Leaf") + "02 e8000001")));
}

TEST_F(EntitySaTest, eachKindOfValueHasItsWidth) {
  serveRoot();
  root_->enabledIs(true);
  root_->countIs(0x01020304u);
  root_->totalIs(0x0102030405060708u);
  root_->delayIs(1.5);
  root_->labelIs("up");
  root_->modeIs(fast);
  root_->addressIs(Number(0xc0a80001u));
  EXPECT_EQ(takeWithoutDraining(),
            framesOf({"04 00000001 00 0102 01", "04 00000001 00 0103 01020304",
                      "04 00000001 00 0105 0102030405060708",
                      "04 00000001 00 0107 3ff8000000000000", "04 00000001 00 0108 0002 7570",
                      "04 00000001 00 0109 00000004", "04 00000001 00 010a c0a80001"}));
}

TEST_F(EntitySaTest, secondsCanBeInfinite) {
  serveRoot();
  root_->delayIs(std::numeric_limits<double>::infinity());
  EXPECT_EQ(takeWithoutDraining(), framesOf({"04 00000001 00 0107 7ff0000000000000"}));
}

TEST_F(EntitySaTest, longestTextIsSentWholeAndALongerOneIsCut) {
  serveRoot();
  root_->labelIs(std::string(255, 'x'));
  root_->labelIs(std::string(256, 'y'));
  EXPECT_EQ(takeWithoutDraining(),
            framesOf({"04 00000001 00 0108" + textHex(std::string(255, 'x')),
                      "04 00000001 00 0108" + textHex(std::string(255, 'y'))}));
}

TEST_F(EntitySaTest, derivedAttributeIsNeverSent) {
  serveRoot();
  root_->countIs(21);
  ASSERT_EQ(root_->twice(), 42u);
  EXPECT_EQ(take(), framesOf({"04 00000001 00 0103 00000015"}));
}

TEST_F(EntitySaTest, attributeWithoutAValueIsNeverSent) {
  serveRoot();
  root_->originIs({.row = 3});
  EXPECT_TRUE(session_->allSent());
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(EntitySaTest, additionCarriesTypeAndKeyAndAllThatIsInIt) {
  serveRoot();
  root_->nodeIs(7);
  EXPECT_EQ(takeWithoutDraining(),
            framesOf({"06 00000001 01 00000007 0104" + textHex("Test::Node") + "00000007",
                      "05 00000001 01 00000007 0103 01", "08 00000001 01 00000007 0103 01",
                      "04 00000001 01 00000007 0104 00000000"}));
}

TEST_F(EntitySaTest, removalCarriesTheKeyOnly) {
  root_->nodeIs(7);
  serveRoot();
  root_->nodeDel(7);
  EXPECT_EQ(takeWithoutDraining(), framesOf({"07 00000001 00 0104 00000007"}));
}

TEST_F(EntitySaTest, memberOfAMemberIsNamedByTheKeysThatLeadToIt) {
  root_->nodeIs(7);
  serveRoot();
  root_->node(7)->leafIs(0xff)->expiredIs(true);
  root_->node(7)->leafDel(0xff);
  EXPECT_EQ(takeWithoutDraining(),
            framesOf({"06 00000001 02 00000007 000000ff 0103" + textHex("Test::Leaf") + "000000ff",
                      "04 00000001 02 00000007 000000ff 0103 00 0104 00000000",
                      "04 00000001 02 00000007 000000ff 0103 01",
                      "07 00000001 01 00000007 0103 000000ff"}));
}

TEST_F(EntitySaTest, endOfADirectoryEntryCarriesItsNumber) {
  serveRoot();
  directory_.entryDel("root/a");
  EXPECT_EQ(take(), framesOf({"03 00000001"}));
}

TEST_F(EntitySaTest, questionAndAnswerCarryTheirToken) {
  serveRoot();
  session_->ask(0x01020304);
  EXPECT_EQ(take(), framesOf({"0a 01020304"}));
  ASSERT_TRUE(send("0a 0000abcd"));
  EXPECT_EQ(take(), framesOf({"0b 0000abcd"}));
}

TEST_F(EntitySaTest, refusalCarriesTheReason) {
  serveRoot();
  session_->refuse("no");
  EXPECT_EQ(takeWithoutDraining(), framesOf({"0c 0002 6e6f"}));
}

// More text than one frame takes.
class Wall final : public Entity<Wall> {
 public:
  static constexpr const char* entityTypeName = "Test::Wall";
  class NotifieeConst : public NotifieeOf<Wall> {
   public:
    virtual void onText() {}
  };
  explicit Wall(Name name) : name_(name) {}
  Name name() const { return name_; }
  void aIs(std::string v) { set<&Wall::a_>(std::move(v)); }
  void bIs(std::string v) { set<&Wall::b_>(std::move(v)); }
  void cIs(std::string v) { set<&Wall::c_>(std::move(v)); }
  void dIs(std::string v) { set<&Wall::d_>(std::move(v)); }

 private:
  friend class Entity<Wall>;
  Name name_;
  std::string a_ = std::string(255, 'a');
  std::string b_ = std::string(255, 'b');
  std::string c_ = std::string(255, 'c');
  std::string d_ = std::string(255, 'd');

 public:
  static constexpr AttrTable attributes{
      Key{"name", &Wall::name_},
      Attr{"a", &Wall::a_, &Wall::aIs, &NotifieeConst::onText},
      Attr{"b", &Wall::b_, &Wall::bIs, &NotifieeConst::onText},
      Attr{"c", &Wall::c_, &Wall::cIs, &NotifieeConst::onText},
      Attr{"d", &Wall::d_, &Wall::dIs, &NotifieeConst::onText},
  };
};

TEST_F(EntitySaTest, attributesThatDoNotFitIntoAFrameFollowInTheNext) {
  directory_.entryIs("wall", makePtr<Wall>("w"), Access::readOnly);
  serve();
  takeWithoutDraining();
  ASSERT_TRUE(send(helloFrame));
  const auto text = [](char c) { return textHex(std::string(255, c)); };
  EXPECT_THAT(take(), ElementsAre(hexOf(bytesOf("02 00000001" + textHex("wall") + "00" +
                                                textHex("Test::Wall") + "05" + textHex("w"))),
                                  hexOf(bytesOf("04 00000001 00 0102" + text('a') + "0103" +
                                                text('b') + "0104" + text('c'))),
                                  hexOf(bytesOf("04 00000001 00 0105" + text('d'))), "09"));
}

TEST(FlowOutTest, bitsBeginWithTheAttributeAfterTheFirst) {
  EXPECT_EQ(FlowOut::bitOf(258), 1u);
  EXPECT_EQ(FlowOut::bitOf(260), 4u);
  EXPECT_EQ(FlowOut::bitOf(321), U64{1} << 63);
}

TEST(FlowOutTest, everythingIsAllThatFlowsAndNothingElse) {
  const FlowOut all = FlowOut::everythingOf(typeInfoOf<Root>());
  EXPECT_EQ(all.dirtyBits(), 0b111101111u);  // neither `twice` nor `origin`
  EXPECT_TRUE(all.hasDirtyAttributes());
  EXPECT_EQ(all.membersIfAny()->walk(), WalkState::wholeDue);
}

TEST(FlowOutTest, memoryOfForgottenKeysIsGivenBackInSteps) {
  while (FlowOut::giveBack(1000)) continue;  // of other tests
  {
    FlowOut flow;
    for (U32 key = 0; key < 1000; ++key) flow.members().dirtyIs(key, true);
    flow.membersDel();
    EXPECT_EQ(flow.membersIfAny(), nullptr);
    for (U32 key = 0; key < 1000; ++key) flow.members().flows()[key].members().dirtyIs(key, true);
  }
  size_t steps = 1;
  while (FlowOut::giveBack(100)) ++steps;
  EXPECT_EQ(steps, 20u);
  EXPECT_FALSE(FlowOut::giveBack(100));
}

TEST(FlowOutTest, nothingIsDirtyAtFirst) { EXPECT_FALSE(FlowOut().hasDirtyAttributes()); }

TEST(FlowOutTest, dirtyKeyAloneIsSomethingDirty) {
  FlowOut flow;
  flow.members().dirtyIs(7, true);
  EXPECT_TRUE(flow.hasDirtyAttributes());
  flow.members().dirtyDel(7);
  EXPECT_FALSE(flow.hasDirtyAttributes());
}

TEST(FlowOutTest, bitsOfALeafAreJoinedUntilTheyAreTaken) {
  FlowOut::Members members;
  members.leafIs(7, 1);
  members.leafIs(7, 4);
  members.leafIs(8, 2);
  EXPECT_EQ(members.leafTake(7), 5u);
  EXPECT_EQ(members.leafTake(7), 0u);
  EXPECT_EQ(members.leafTake(8), 2u);
}

TEST(FlowOutTest, leafThatCameOrWentNeedsNoOtherBits) {
  FlowOut::Members members;
  members.leafIs(7, 1);
  members.leafIs(7, FlowOut::Members::leafRecord);
  members.leafIs(7, 4);
  EXPECT_EQ(members.records(), 1u);
  EXPECT_EQ(members.leafTake(7), FlowOut::Members::leafRecord);
  EXPECT_EQ(members.records(), 0u);
}

TEST(FlowOutDeathTest, attributeOfALeafBeyondItsBitsIsABug) {
  FlowOut::Members members;
  EXPECT_DEATH(members.leafIs(7, U64{1} << 32), "an attribute of a leaf has no dirty bit");
}

TEST(FlowOutDeathTest, attributeBeyondTheBitsIsABug) {
  EXPECT_DEATH(FlowOut::bitOf(322), "without a dirty bit");
  EXPECT_DEATH(FlowOut::bitOf(257), "without a dirty bit");
}

}  // namespace
}  // namespace Mox::NboAttrLog
