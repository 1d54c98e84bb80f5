#include "TestBench.h"

namespace Gmp::Igmp::testing {

namespace {

class QuerierSmBoundary : public TestBench {
 protected:
  void startWith(std::initializer_list<const char*> prefixes) {
    const auto boundary = makePtr<Ilvo::IntfBoundaryStatus>();
    for (const char* prefix : prefixes) {
      boundary->boundaryIs(*Ilvo::IpGenPrefix::parse(prefix), true);
    }
    start().mcastBoundaryIntfStatusIs(boundary);
    traces_.clear();
  }
  bool inside(U8 a, U8 b, U8 c, U8 d) const {
    return querier_->checkMcastIntfBoundaryStatus(IpAddr(a, b, c, d));
  }
};

TEST_F(QuerierSmBoundary, WithoutABoundaryEveryGroupIsOutside) {
  start();
  EXPECT_FALSE(inside(239, 1, 2, 3));
  EXPECT_FALSE(inside(0, 0, 0, 0));
}

TEST_F(QuerierSmBoundary, AnEmptyBoundaryHoldsNothing) {
  startWith({});
  EXPECT_FALSE(inside(239, 1, 2, 3));
}

TEST_F(QuerierSmBoundary, EachQuestionIsTraced) {
  startWith({});
  inside(239, 1, 2, 3);
  ASSERT_EQ(traces_.size(), 1u);
  EXPECT_EQ(traces_[0].text, "checkMcastIntfBoundaryStatus for group : 239.1.2.3");
  EXPECT_EQ(traces_[0].function, "checkMcastIntfBoundaryStatus");
  EXPECT_EQ(traces_[0].handle, "IgmpPacket");
  EXPECT_EQ(traces_[0].level, 6);
}

TEST_F(QuerierSmBoundary, APrefixHoldsTheAddressesThatAgreeInItsBits) {
  startWith({"239.0.0.0/8"});
  EXPECT_TRUE(inside(239, 1, 2, 3));
  EXPECT_TRUE(inside(239, 0, 0, 0));
  EXPECT_TRUE(inside(239, 255, 255, 255));
  EXPECT_FALSE(inside(238, 255, 255, 255));
  EXPECT_FALSE(inside(240, 0, 0, 0));
}

TEST_F(QuerierSmBoundary, ALengthOfZeroHoldsEverything) {
  startWith({"0.0.0.0/0"});
  EXPECT_TRUE(inside(0, 0, 0, 0));
  EXPECT_TRUE(inside(224, 0, 0, 1));
  EXPECT_TRUE(inside(255, 255, 255, 255));
}

TEST_F(QuerierSmBoundary, AFullLengthHoldsOneAddress) {
  startWith({"239.1.2.3/32"});
  EXPECT_TRUE(inside(239, 1, 2, 3));
  EXPECT_FALSE(inside(239, 1, 2, 2));
}

TEST_F(QuerierSmBoundary, OddLengthsAreComparedBitByBit) {
  startWith({"239.128.0.0/9"});
  EXPECT_TRUE(inside(239, 128, 0, 0));
  EXPECT_FALSE(inside(239, 127, 255, 255));
}

TEST_F(QuerierSmBoundary, AnIpv6PrefixNeverHoldsAnIpv4Group) {
  startWith({"::/0", "ff00::/8", "::ffff:239.0.0.0/104"});
  EXPECT_FALSE(inside(239, 1, 2, 3));
}

TEST_F(QuerierSmBoundary, AnyOfSeveralPrefixesIsEnough) {
  startWith({"ff00::/8", "224.1.0.0/16", "239.1.0.0/16"});
  EXPECT_TRUE(inside(239, 1, 2, 3));
  EXPECT_TRUE(inside(224, 1, 9, 9));
  EXPECT_FALSE(inside(239, 2, 0, 0));
}

TEST_F(QuerierSmBoundary, TheValueBesideAPrefixDoesNotMatter) {
  const auto boundary = makePtr<Ilvo::IntfBoundaryStatus>();
  boundary->boundaryIs(*Ilvo::IpGenPrefix::parse("239.0.0.0/8"), false);
  start().mcastBoundaryIntfStatusIs(boundary);
  EXPECT_TRUE(inside(239, 1, 2, 3));
}

TEST_F(QuerierSmBoundary, AChangedOrRemovedBoundaryCountsAtOnce) {
  startWith({"239.0.0.0/8"});
  querier_->mcastBoundaryIntfStatusIs(nullptr);
  EXPECT_FALSE(inside(239, 1, 2, 3));
}

}  // namespace

}  // namespace Gmp::Igmp::testing
