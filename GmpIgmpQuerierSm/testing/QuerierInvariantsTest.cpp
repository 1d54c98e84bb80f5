// A checker that never fails would prove nothing: each test breaks one invariant from outside.
#include <GmpIgmpQuerierTestSupport/QuerierInvariants.h>

#include <optional>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Mox/ActivityClock.h>
#include <Obel/TimerReactor.h>

namespace Gmp::Igmp::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class QuerierInvariantsTest : public ::testing::Test {
 protected:
  static constexpr IpAddr group_{239, 1, 1, 1};
  static constexpr IpAddr source_{10, 7, 0, 1};

  QuerierInvariantsTest() {
    Mox::virtualTimeIs(1000.0);
    srand48(1);
    config_->querierVersionIs(igmpVersion3);
    start();
  }
  ~QuerierInvariantsTest() override { release(); }

  void start() {
    querier_ = querierSmFactory(config_, status_, IpAddr(10, 0, 0, 5), 1500, 0, wheel_, wheel_,
                                wheel_, false);
    invariants_.watch(querier_);
  }
  void release() {
    invariants_.release();
    querier_ = nullptr;
  }
  void receive(const std::vector<U8>& packet) {
    querier_->doRxPkt(makePtr<Ilvo::Pkt>(std::span<const U8>(packet)));
  }
  void receiveRecord(U8 type, std::vector<IpAddr> sources = {}) {
    receive(Ilvo::buildV3Report({{.type = type, .group = group_, .sources = std::move(sources)}}));
  }
  void runFor(Seconds duration) {
    const Seconds until = Mox::now() + duration;
    while (wheel_->nextDue() <= until) {
      Mox::virtualTimeIs(std::max(Mox::now(), wheel_->nextDue()));
      wheel_->turn(Mox::now());
    }
    Mox::virtualTimeIs(until);
  }
  QuerierGroupSm& groupSm() { return *querier_->groupSm(group_); }

  Ptr<Obel::TimerWheel> wheel_ = makePtr<Obel::TimerWheel>(1000.0);
  Ptr<QuerierConfig> config_ = querierConfigFactory("vlan10");
  Ptr<QuerierStatus> status_ = querierStatusFactory();
  Ptr<QuerierSm> querier_;
  QuerierInvariants invariants_{wheel_};
};

TEST_F(QuerierInvariantsTest, allHoldsForAQuerierLeftToItself) {
  EXPECT_THAT(invariants_.breaches(), IsEmpty());
  receiveRecord(4);
  receiveRecord(5, {source_});
  runFor(1.0);
  EXPECT_THAT(invariants_.breaches(), IsEmpty());
  receiveRecord(3);
  runFor(300.0);
  EXPECT_THAT(invariants_.breaches(), IsEmpty());
  EXPECT_GT(status_->v3QueriesSent(), 0u);
}

TEST_F(QuerierInvariantsTest, allHoldsForTheNextQuerierOnTheStatus) {
  receiveRecord(4);
  runFor(30.0);
  release();
  start();
  EXPECT_THAT(invariants_.breaches(), IsEmpty());
  runFor(30.0);
  EXPECT_THAT(invariants_.breaches(), IsEmpty());
}

TEST_F(QuerierInvariantsTest, aMissingStatusEntryIsReported) {
  receiveRecord(4);
  status_->groupDel(group_);
  EXPECT_THAT(invariants_.breaches(),
              Contains("239.1.1.1: a group's machine has the group's status entry"));
}

TEST_F(QuerierInvariantsTest, aStatusEntryWithoutAMachineIsReported) {
  runFor(60.0);
  status_->groupIs(group_);
  EXPECT_THAT(invariants_.breaches(),
              ElementsAre("a status entry has its machine, or one is about to be made"));
}

TEST_F(QuerierInvariantsTest, anIncludeGroupWithoutSourcesIsOneThatAQueryMade) {
  receive(Ilvo::buildV2Query(group_, 10, {.src = IpAddr(10, 0, 0, 9)}));
  EXPECT_THAT(invariants_.breaches(), ElementsAre("239.1.1.1: a group that includes nothing ends"));
  invariants_.bornOfQuery(group_);
  EXPECT_THAT(invariants_.breaches(), IsEmpty());
  invariants_.reported(group_);
  EXPECT_THAT(invariants_.breaches(), ElementsAre("239.1.1.1: a group that includes nothing ends"));
}

TEST_F(QuerierInvariantsTest, aTimerOfNoMachineIsReported) {
  struct Stray {
    void handle() {}
  } stray;
  Obel::TimerReactor<Stray, &Stray::handle> timer(wheel_, stray);
  timer.timeMinIs(2000.0);
  EXPECT_THAT(invariants_.breaches(), ElementsAre("timers that run, and no others, are armed"));
}

TEST_F(QuerierInvariantsTest, aPublishedTimeThatIsNotTheTimersIsReported) {
  receiveRecord(4);
  status_->group(group_)->expiryTimeIs(1.0);
  EXPECT_THAT(invariants_.breaches(),
              ElementsAre("239.1.1.1: the published end of the group is that of its timer"));
}

TEST_F(QuerierInvariantsTest, theEntriesOfSourcesAreComparedWithTheirMachines) {
  receiveRecord(5, {source_});
  status_->group(group_)->source(source_)->expiredIs(true);
  EXPECT_THAT(invariants_.breaches(),
              ElementsAre("239.1.1.1: a source is expired when its timer does not run"));
  status_->group(group_)->sourceDel(source_);
  EXPECT_THAT(invariants_.breaches(),
              ElementsAre("239.1.1.1: there are as many status entries of sources as machines",
                          "239.1.1.1: a source's machine has the source's status entry"));
}

TEST_F(QuerierInvariantsTest, onlyACloggedLogMayKeepBackTheEndOfASource) {
  receiveRecord(5, {source_});
  status_->group(group_)->source(source_)->expiryTimeIs(1.0);
  EXPECT_THAT(invariants_.breaches(),
              ElementsAre("239.1.1.1: the published end of a source is that of its timer"));
  invariants_.attrLogWasClogged();
  EXPECT_THAT(invariants_.breaches(), IsEmpty());
}

TEST_F(QuerierInvariantsTest, aSourceWithPendingQueriesHasACount) {
  receiveRecord(5, {source_});
  groupSm().rexmitSourceIs(source_, true);
  EXPECT_THAT(invariants_.breaches(),
              ElementsAre("239.1.1.1: a source with pending queries has a count of them"));
}

TEST_F(QuerierInvariantsTest, groupsArePendingInAHandOverOnly) {
  querier_->pendingRexmitIs(group_, true);
  EXPECT_THAT(invariants_.breaches(), ElementsAre("groups are pending in a hand-over"));
  querier_->pendingRexmitDelAll();
  querier_->transitionToNonQuerierIs(true);
  EXPECT_THAT(invariants_.breaches(), ElementsAre("a hand-over lasts while groups are pending"));
}

TEST_F(QuerierInvariantsTest, aCountedQueryThatWasNotSentIsReported) {
  status_->v2QueriesSentInc(1);
  status_->v3QueriesSentInc(1);
  status_->v3GSSQueriesSentInc(1);
  EXPECT_THAT(invariants_.breaches(),
              ElementsAre("each query of versions 1 and 2 that was sent is counted",
                          "each version 3 query without sources that was sent is counted",
                          "each query with sources that was sent is counted"));
}

TEST_F(QuerierInvariantsTest, theCountersOfPacketsAreReadFromTheStatus) {
  receiveRecord(4);
  receive(Ilvo::buildV2Leave(group_));
  receive(Ilvo::buildV1Report(group_, {.badIgmpChecksum = true}));
  EXPECT_EQ(receiveCountersOf(*status_),
            (ReceiveCounters{.leaves = 1, .v3Reports = 1, .errors = 1}));
  EXPECT_EQ(textOf(receiveCountersOf(*status_)),
            "v1 queries 0, v2 queries 0, v3 queries 0, v1 reports 0, v2 reports 0, leaves 1, "
            "v3 reports 1, errors 1, others 0, at the boundary 0");
}

}  // namespace
}  // namespace Gmp::Igmp::testing
