// Group-and-source-specific queries.
#include "TestBench.h"

#include <Ilvo/Checksum.h>
#include "SendQuery.h"

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Status = QuerierStatus;

namespace {

class SendQuerySources : public TestBench {
 protected:
  static std::vector<IpAddr> sources(size_t n) {
    std::vector<IpAddr> list;
    for (size_t i = 0; i < n; ++i) list.emplace_back(IpAddr(10, 1, 0, 0).value() + U32(i));
    return list;
  }
  void startWithMtu(U32 mtu) {
    setup_.mtu = mtu;
    startQuiet();
  }
  bool sendOne(std::vector<IpAddr>& list, bool sFlag = false) {
    return sendGroupAndSourceSpecificQueryHelper(querier_.get(), group_, list, sFlag);
  }
  // How many sources each packet holds when so many are sent.
  std::vector<size_t> packetsOf(U32 mtu, size_t n) {
    startWithMtu(mtu);
    takeSent();
    std::vector<IpAddr> clear = sources(n);
    std::vector<IpAddr> set;
    sendGroupAndSourceSpecificQuery(querier_.get(), group_, clear, set);
    EXPECT_THAT(clear, IsEmpty());
    std::vector<size_t> sizes;
    for (const SentQuery& query : sent_) sizes.push_back(query.sources().size());
    return sizes;
  }
};

TEST_F(SendQuerySources, HoldsTheFieldsAndTheSourcesFromTheBackOfTheList) {
  config_->robustnessIs(9);
  config_->lastMemberQueryIntervalIs(20.8);
  startWithMtu(1500);
  std::vector<IpAddr> list = {IpAddr(1, 1, 1, 1), IpAddr(2, 2, 2, 2)};
  EXPECT_TRUE(sendOne(list));
  EXPECT_THAT(list, IsEmpty());
  ASSERT_EQ(sent_.size(), 1u);
  using ::testing::_;
  EXPECT_THAT(sent_[0].bytes, ElementsAre(0x11, 0x8a, _, _, 239, 1, 1, 1, 7, 125, 0, 2,  //
                                          2, 2, 2, 2, 1, 1, 1, 1));
  EXPECT_EQ(Ilvo::checksum(sent_[0].bytes), 0);
  EXPECT_EQ(sent_[0].dst, group_);
}

TEST_F(SendQuerySources, TheSFlagIsTheCallers) {
  startWithMtu(1500);
  std::vector<IpAddr> list = sources(1);
  sendOne(list, true);
  EXPECT_TRUE(sent_.at(0).sFlag());
  list = sources(1);
  sendOne(list, false);
  EXPECT_FALSE(sent_.at(1).sFlag());
}

TEST_F(SendQuerySources, IsPublishedCountedAndTracedInItsOrder) {
  startWithMtu(1500);
  watch(status_, "status");
  watch(Ptr<const QuerierSm>(querier_), "sm");
  std::vector<IpAddr> list = sources(2);
  sendOne(list);
  EXPECT_THAT(takeJournal(), ElementsAre("sm.dstGroup 239.1.1.1", "sm.sendPkt",
                                         "sm.writableCount 1", "status.v3GSSQueriesSent 1"));
  EXPECT_THAT(
      traceTexts(),
      ElementsAre("Querier vlan10 sending group and source specific query with SFlag not set from "
                  "10.0.0.5IgmpV3QueryHdr( type 0x11 code 10 group 239.1.1.1 s 0 qrv 2 qqic 125 "
                  "sources 2 )",
                  "Sent group and source specific query packet for vlan vlan10"));
  list = sources(1);
  sendOne(list, true);
  EXPECT_EQ(tracedBegin("Querier vlan10 sending group and source specific query with SFlag set "
                        "from 10.0.0.5"),
            1u);
}

TEST_F(SendQuerySources, AnEmptyListMakesAQueryThatCountsAsGroupSpecific) {
  startWithMtu(1500);
  std::vector<IpAddr> none;
  EXPECT_TRUE(sendOne(none));
  EXPECT_EQ(sent_.at(0).bytes.size(), 12u);
  EXPECT_EQ(status_->v3GSQueriesSent(), 1u);
  EXPECT_EQ(status_->v3GSSQueriesSent(), 0u);
  EXPECT_EQ(status_->v3QueriesSent(), 0u);
}

TEST_F(SendQuerySources, TheMtuBoundsTheSourcesOfAPacket) {
  EXPECT_THAT(packetsOf(1500, 700), ElementsAre(365, 335));
  EXPECT_THAT(packetsOf(1500, 365), ElementsAre(365));
  EXPECT_THAT(packetsOf(1500, 366), ElementsAre(365, 1));
  EXPECT_THAT(packetsOf(68, 8), ElementsAre(7, 1));
  EXPECT_THAT(packetsOf(47, 2), ElementsAre(1, 1));
}

TEST_F(SendQuerySources, WithoutAnMtuAllSourcesGoIntoOnePacket) {
  EXPECT_THAT(packetsOf(0, 700), ElementsAre(700));
}

TEST_F(SendQuerySources, AnMtuWithoutRoomForOneSourceStillSendsOneInEachPacket) {
  for (const U32 mtu : {1u, 40u, 43u}) EXPECT_THAT(packetsOf(mtu, 3), ElementsAre(1, 1, 1));
}

TEST_F(SendQuerySources, TheBoundIsASixteenBitNumber) {
  EXPECT_THAT(packetsOf(40 + 4 * (65536 + 5), 12), ElementsAre(5, 5, 2));
  EXPECT_THAT(packetsOf(40 + 4 * 65536, 3), ElementsAre(1, 1, 1));
}

TEST_F(SendQuerySources, EachPacketIsCountedOnce) {
  packetsOf(1500, 700);
  EXPECT_EQ(status_->v3GSSQueriesSent(), 2u);
  EXPECT_EQ(querier_->writableCount(), 2u);
}

TEST_F(SendQuerySources, TheRestOfALongListIsInTheNextPacket) {
  startWithMtu(48);
  std::vector<IpAddr> list = sources(3);
  sendOne(list);
  EXPECT_THAT(list, ElementsAre(IpAddr(10, 1, 0, 0)));
  EXPECT_THAT(sent_.at(0).sources(), ElementsAre(IpAddr(10, 1, 0, 2), IpAddr(10, 1, 0, 1)));
}

TEST_F(SendQuerySources, WithoutAPacketTheListIsKept) {
  startWithMtu(1500);
  watch(status_, "status");
  watch(Ptr<const QuerierSm>(querier_), "sm");
  Ilvo::pktManager().failuresIs(1);
  std::vector<IpAddr> list = sources(2);
  EXPECT_FALSE(sendOne(list));
  EXPECT_EQ(list.size(), 2u);
  EXPECT_THAT(journal_, ElementsAre("sm.dstGroup 239.1.1.1"));
  EXPECT_THAT(traceTexts(), ElementsAre("Packet allocation failed for querier vlan10"));
}

TEST_F(SendQuerySources, AFailedListDoesNotHoldUpTheOther) {
  startWithMtu(1500);
  Ilvo::pktManager().failuresIs(1);
  std::vector<IpAddr> clear = sources(2);
  std::vector<IpAddr> set = sources(1);
  sendGroupAndSourceSpecificQuery(querier_.get(), group_, clear, set);
  EXPECT_EQ(clear.size(), 2u);
  ASSERT_EQ(sent_.size(), 1u);
  EXPECT_TRUE(sent_[0].sFlag());
}

TEST_F(SendQuerySources, QueriesWithTheSFlagClearGoFirst) {
  startWithMtu(1500);
  std::vector<IpAddr> clear = sources(2);
  std::vector<IpAddr> set = sources(1);
  sendGroupAndSourceSpecificQuery(querier_.get(), group_, clear, set);
  ASSERT_EQ(sent_.size(), 2u);
  EXPECT_FALSE(sent_[0].sFlag());
  EXPECT_EQ(sent_[0].sources().size(), 2u);
  EXPECT_TRUE(sent_[1].sFlag());
  EXPECT_EQ(sent_[1].sources().size(), 1u);
}

TEST_F(SendQuerySources, TwoEmptyListsSendNothing) {
  startWithMtu(1500);
  std::vector<IpAddr> none;
  std::vector<IpAddr> nothing;
  sendGroupAndSourceSpecificQuery(querier_.get(), group_, none, nothing);
  EXPECT_THAT(sent_, IsEmpty());
}

TEST_F(SendQuerySources, AQuerierWithoutAnAddressIsFatal) {
  setup_.ipAddr = IpAddr();
  start();
  std::vector<IpAddr> list = sources(1);
  std::vector<IpAddr> none;
  EXPECT_DEATH(sendGroupAndSourceSpecificQuery(querier_.get(), group_, list, none),
               "GmpIgmpQuerierSm.tin:.*: sendGroupAndSourceSpecificQuery: Assertion "
               "'q->ipAddr\\(\\) != Ilvo::IpAddr::ipAddrZero\\(\\)' failed");
}

}  // namespace

}  // namespace Gmp::Igmp::testing
