// What each accepted message does and counts, and what it must not count.
#include "RxBench.h"

namespace Gmp::Igmp::testing {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

namespace {

const std::string boundaryGroup = "Group address configured in multicast boundary";

class QuerierSmRxPkt : public RxBench {
 protected:
  static constexpr IpAddr reserved_{224, 0, 0, 5};
  static constexpr IpAddr unicast_{10, 9, 9, 9};

  // The counters of received packets that moved since forget(), with their values, in order.
  std::vector<std::string> counted() const {
    std::vector<std::string> lines;
    for (const std::string& line : journal_) {
      const bool counter = line.find("Received ") != std::string::npos;
      if (counter) lines.push_back(line.substr(std::string("status.").size()));
    }
    return lines;
  }
  // Everything published, whatever it is.
  bool nothingPublished() const { return journal_.empty(); }
};

TEST_F(QuerierSmRxPkt, EveryPacketIsTracedAtItsEntry) {
  startAs(igmpVersion3);
  receiveV2Report(group_);
  ASSERT_FALSE(traces_.empty());
  EXPECT_EQ(traces_[0].text, "QuerierSm( vlan10 )::doRxPkt( Pkt[32] )");
  EXPECT_EQ(traces_[0].level, 8);
}

TEST_F(QuerierSmRxPkt, ReceptionTracesNameTheirHandleAndTheEntryPoint) {
  startAs(igmpVersion3);
  receiveV2Report(group_);
  const auto line = std::find_if(traces_.begin(), traces_.end(), [](const TracedLine& l) {
    return l.text == "vlan10 handling valid igmp packet of type 22";
  });
  ASSERT_NE(line, traces_.end());
  EXPECT_EQ(line->handle, "IgmpPacket");
  EXPECT_EQ(line->function, "doRxPkt");
  EXPECT_EQ(line->level, 6);
}

TEST_F(QuerierSmRxPkt, ReceptionTracesStandInTheRingToo) {
  startAs(igmpVersion3);
  igmpPacketTrace->ringLevelIs(8);
  receive(Ilvo::buildV2Report(group_, {.protocol = 17}));
  igmpPacketTrace->ringLevelIs(Mox::TraceHandle::defaultRingLevel);
  std::vector<std::string> ring;
  Mox::brevlog().forEach([&](const Brevlog::Ring::Line& l) { ring.push_back(l.text()); });
  ASSERT_GE(ring.size(), 2u);
  EXPECT_EQ(ring[ring.size() - 2], "IgmpPacket QuerierSm( vlan10 )::doRxPkt( Pkt[32] )");
  EXPECT_EQ(ring.back(), "IgmpPacket Dropping non-IGMP protocol 17");  // a number here
}

TEST_F(QuerierSmRxPkt, EveryTypeByteIsDispatchedOrCountedAsOther) {
  startAs(igmpVersion3);
  for (unsigned type = 0; type <= 0xff; ++type) {
    SCOPED_TRACE(type);
    forget();
    const U8 byte = static_cast<U8>(type);
    receive(Ilvo::buildIgmpPacket({byte, 0, 0, 0, 239, 1, 1, 1}, group_));
    const bool known = type == 0x11 || type == 0x12 || type == 0x16 || type == 0x17 || type == 0x22;
    char text[64];
    std::snprintf(text, sizeof text, "vlan10Don't care about IGMP type 0x%x", type);
    EXPECT_EQ(traced(text), known ? 0u : 1u) << text;
    EXPECT_EQ(counted().size(), type == 0x22 ? 0u : 1u);  // its record count is beyond its end
    const size_t others = tracedBegin("vlan10Don't care about IGMP type");
    EXPECT_EQ(journal_.size() == 1 && journal_[0].starts_with("status.otherPacketReceived "),
              others == 1);
    EXPECT_EQ(traced("vlan10 handling valid igmp packet of type " + std::to_string(type)), 1u);
  }
  EXPECT_EQ(status_->otherPacketReceived(), 251u);
  EXPECT_EQ(status_->errorPacketReceived(), 0u);
}

TEST_F(QuerierSmRxPkt, TheVersionOfAQueryGoesByCodeThenLength) {
  startAs(igmpVersion3);
  for (size_t length = 8; length <= 13; ++length) {
    for (const U8 code : {U8{0}, U8{100}}) {
      SCOPED_TRACE("length " + std::to_string(length) + " code " + std::to_string(code));
      forget();
      std::vector<U8> message(length);
      message[0] = 0x11;
      message[1] = code;
      receive(Ilvo::buildIgmpPacket(message, IpAddr(224, 0, 0, 1), {.src = higher_}));
      const char* counter = code == 0      ? "v1QueriesReceived "
                            : length == 8  ? "v2QueriesReceived "
                            : length <= 11 ? "errorPacketReceived "
                                           : "v3QueriesReceived ";
      EXPECT_THAT(counted(), ElementsAre(::testing::StartsWith(counter)));
      const bool dropped = code != 0 && length > 8 && length < 12;
      EXPECT_EQ(traced("vlan10Dropping packet with invalid length " + std::to_string(length)),
                dropped ? 1u : 0u);
      EXPECT_EQ(tracedBegin("void Gmp::Igmp::QuerierSm::doQuerierElection"), dropped ? 0u : 1u);
    }
  }
}

TEST_F(QuerierSmRxPkt, AGeneralQueryMakesNoGroup) {
  startAs(igmpVersion3);
  receiveV1Query(higher_);
  receiveV2Query(higher_);
  receiveV3Query(higher_);
  EXPECT_TRUE(querier_->groupSm().empty());
  EXPECT_THAT(counted(),
              ElementsAre("v1QueriesReceived 1", "v2QueriesReceived 1", "v3QueriesReceived 1"));
}

TEST_F(QuerierSmRxPkt, AQueryInsideTheBoundaryIsCountedTwiceAndGoesNoFurther) {
  startAs(igmpVersion3);
  boundTo("239.0.0.0/8");
  receiveV3Query(lower_, {.group = group_});
  EXPECT_THAT(counted(), ElementsAre("v3QueriesReceived 1", "mcastBoundaryPktReceived 1"));
  EXPECT_EQ(traced(boundaryGroup + "239.1.1.1"), 1u);
  EXPECT_EQ(traced("McastBoundaryPktReceived count:1"), 1u);
  EXPECT_EQ(status_->electedQuerierAddr(), own_);
  EXPECT_EQ(groupSm(group_), nullptr);
  receiveV2Query(lower_, group_);
  EXPECT_EQ(status_->mcastBoundaryPktReceived(), 2u);
  EXPECT_EQ(status_->v2QueriesReceived(), 1u);
}

TEST_F(QuerierSmRxPkt, ABoundaryOfEverythingDropsGeneralQueriesToo) {
  startAs(igmpVersion3);
  boundTo("0.0.0.0/0");
  receiveV3Query(lower_);
  EXPECT_EQ(status_->mcastBoundaryPktReceived(), 1u);
  EXPECT_EQ(status_->electedQuerierAddr(), own_);
}

TEST_F(QuerierSmRxPkt, AVersionDiscrepancyIsLoggedByTheTable) {
  for (unsigned configured = 1; configured <= 3; ++configured) {
    for (unsigned version = 1; version <= 3; ++version) {
      for (const IpAddr group : {IpAddr(), group_}) {
        SCOPED_TRACE(std::to_string(configured) + " receives " + std::to_string(version) + " for " +
                     group.stringValue());
        config_ =
            querierConfigFactory("vlan-" + std::to_string(configured) + std::to_string(version) +
                                 (group.isZero() ? "general" : "specific"));
        startAs(IgmpVersionInstance(configured));
        events_.clear();
        if (version == 3) {
          receiveV3Query(higher_, {.group = group});
        } else {
          receiveV2Query(higher_, group, version == 1 ? 0 : 100);
        }
        const bool logged =
            (configured == 3 && version != 3 && group.isZero()) || configured < version;
        ASSERT_EQ(events_.size(), logged ? 1u : 0u);
        if (!logged) continue;
        EXPECT_EQ(events_[0].name, "GMP_IGMP_QUERY_VERSION_CONFIGURED_DISCREPANCY");
        EXPECT_EQ(events_[0].text, "IGMP version " + std::to_string(version) +
                                       " query heard on vlan " + config_->name().string() +
                                       " by a querier configured to version " +
                                       std::to_string(configured) + ".");
        EXPECT_FALSE(events_[0].limited);
      }
    }
  }
}

TEST_F(QuerierSmRxPkt, ARepeatedDiscrepancyIsLimitedToOneAMinute) {
  config_ = querierConfigFactory("vlan-limited");
  startAs(igmpVersion3);
  receiveV2Query(higher_);
  receiveV2Query(higher_);
  runFor(59.9);
  receiveV2Query(higher_);
  runFor(0.1);
  receiveV2Query(higher_);
  ASSERT_EQ(events_.size(), 4u);
  EXPECT_FALSE(events_[0].limited);
  EXPECT_TRUE(events_[1].limited);
  EXPECT_TRUE(events_[2].limited);
  EXPECT_FALSE(events_[3].limited);
}

TEST_F(QuerierSmRxPkt, TheDiscrepancyMessageHasItsText) {
  const Mox::EventLogMessage& message = gmpIgmpQueryVersionConfiguredDiscrepancy.message();
  EXPECT_EQ(message.severity, 4);
  EXPECT_EQ(message.interval, 60.0);
  EXPECT_EQ(message.burst, 1.0);
  EXPECT_EQ(message.flag, 0);
  EXPECT_STREQ(message.explanation,
               "The switch detected an IGMP query message of a different version than the version "
               "that is currently configured.");
  EXPECT_STREQ(message.recommendedAction,
               "Configure all queriers on the network to use the same querier version");
}

TEST_F(QuerierSmRxPkt, AnOldSpecificQueryGoesToItsGroup) {
  startAs(igmpVersion3);
  receiveV2Query(higher_, group_);
  EXPECT_NE(groupSm(group_), nullptr);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxGSQuery()"), 1u);
  receiveV2Query(higher_, group_, 0);  // code 0: version 1
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxGSQuery()"), 2u);
}

TEST_F(QuerierSmRxPkt, AQueryForAUnicastAddressIsTakenAsGroupSpecific) {
  startAs(igmpVersion3);
  receiveV2Query(higher_, unicast_);
  EXPECT_NE(groupSm(unicast_), nullptr);
  EXPECT_THAT(counted(), ElementsAre("v2QueriesReceived 1"));
}

TEST_F(QuerierSmRxPkt, TheElectionComesBeforeTheGroup) {
  startAs(igmpVersion3);
  receiveV2Query(lower_, group_);
  const auto elected =
      std::find(journal_.begin(), journal_.end(), "status.electedQuerierAddr 10.0.0.2");
  const auto made = std::find(journal_.begin(), journal_.end(), "status.group 239.1.1.1");
  ASSERT_NE(made, journal_.end());
  EXPECT_LT(elected, made);
}

TEST_F(QuerierSmRxPkt, AVersion3QueryWithTheSFlagTouchesNoGroup) {
  startAs(igmpVersion3);
  receiveV3Query(lower_, {.group = group_, .sFlag = true, .sources = {source_}});
  EXPECT_EQ(groupSm(group_), nullptr);
  EXPECT_EQ(status_->electedQuerierAddr(), lower_);
}

TEST_F(QuerierSmRxPkt, AVersion3QueryGoesToItsGroupBySources) {
  startAs(igmpVersion3);
  receiveV3Query(higher_, {.group = group_, .code = 10});
  EXPECT_EQ(tracedBegin("QuerierGroupSm( 239.1.1.1 )::handleRxGSQuery( Value("), 1u);
  EXPECT_EQ(tracedBegin("QuerierGroupSm( 239.1.1.1 )::handleRxGSSQuery( "), 0u);
  receiveV3Query(higher_, {.group = group_, .code = 10, .sources = {source_}});
  EXPECT_EQ(tracedBegin("QuerierGroupSm( 239.1.1.1 )::handleRxGSQuery( "), 1u);
  EXPECT_EQ(tracedBegin("QuerierGroupSm( 239.1.1.1 )::handleRxGSSQuery( Value("), 1u);
}

TEST_F(QuerierSmRxPkt, AVersion3QueryWithATruncatedListIsGroupSpecificWithoutRobustness) {
  startAs(igmpVersion3);
  receiveV2Report(group_);
  receiveV3Query(higher_, {.group = group_, .sFlag = true, .sources = {source_}, .numSources = 2});
  IgmpQuery query;  // all that such a query is parsed into
  query.version = igmpVersion3;
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxGSQuery( " + valueToStrep(query) + " )"),
            1u);
  EXPECT_EQ(groupSm(group_)->membershipTimerExpiry(), now());  // 0 times any response time
  EXPECT_EQ(status_->v3QueriesReceived(), 1u);
}

TEST_F(QuerierSmRxPkt, AVersion3QueryIsUnderstoodUnderEveryConfiguredVersion) {
  for (const auto version : {igmpVersion1, igmpVersion2, igmpVersion3}) {
    startAs(version);
    receiveV3Query(higher_, {.group = group_});
    EXPECT_THAT(counted(), ElementsAre(::testing::StartsWith("v3QueriesReceived ")));
    EXPECT_NE(groupSm(group_), nullptr);
  }
}

TEST_F(QuerierSmRxPkt, AVersion1ReportIsTakenUnderEveryConfiguredVersion) {
  for (const auto version : {igmpVersion1, igmpVersion2, igmpVersion3}) {
    startAs(version);
    receiveV1Report(group_);
    EXPECT_THAT(counted(), ElementsAre(::testing::StartsWith("v1ReportReceived ")));
    EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxV1Report()"), 1u);
  }
}

TEST_F(QuerierSmRxPkt, AReportIsCountedAfterItWasHandled) {
  startAs(igmpVersion3);
  receiveV1Report(group_);
  ASSERT_FALSE(journal_.empty());
  EXPECT_EQ(journal_.back(), "status.v1ReportReceived 1");
  receiveV2Report(group_);
  EXPECT_EQ(journal_.back(), "status.v2ReportReceived 1");
}

TEST_F(QuerierSmRxPkt, OldReportsForOtherThanLearnableGroupsAreDroppedSilently) {
  startAs(igmpVersion2);
  for (const IpAddr group :
       {IpAddr(), unicast_, IpAddr(255, 255, 255, 255), reserved_, IpAddr(224, 0, 0, 255)}) {
    receiveV1Report(group);
    receiveV2Report(group);
  }
  EXPECT_TRUE(nothingPublished());
  EXPECT_TRUE(querier_->groupSm().empty());
  for (const std::string& text : traceTexts("IgmpPacket")) {
    EXPECT_TRUE(text.find("doRxPkt") != std::string::npos ||
                text.find("handling valid") != std::string::npos)
        << text;
  }
}

TEST_F(QuerierSmRxPkt, TheFirstAddressesOutsideTheReservedOnesAreLearned) {
  startAs(igmpVersion2);
  receiveV1Report(IpAddr(224, 0, 1, 0));
  receiveV2Report(IpAddr(239, 255, 255, 255));
  EXPECT_EQ(querier_->groupSm().size(), 2u);
}

TEST_F(QuerierSmRxPkt, OldReportsInsideTheBoundaryAreCountedThereOnly) {
  startAs(igmpVersion2);
  boundTo("239.0.0.0/8");
  receiveV1Report(group_);
  receiveV2Report(group_);
  EXPECT_THAT(counted(), ElementsAre("mcastBoundaryPktReceived 1", "mcastBoundaryPktReceived 2"));
  EXPECT_EQ(traced("Group address found in multicast boundary:239.1.1.1"), 2u);
  EXPECT_EQ(traced("McastBoundaryPktReceived counter : 1"), 1u);
  EXPECT_EQ(traced("McastBoundaryPktReceived counter : 2"), 1u);
  EXPECT_EQ(groupSm(group_), nullptr);
}

TEST_F(QuerierSmRxPkt, AVersion2ReportIsTakenFromVersion2On) {
  startAs(igmpVersion2);
  receiveV2Report(group_);
  EXPECT_THAT(counted(), ElementsAre("v2ReportReceived 1"));
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxV2Report()"), 1u);
}

TEST_F(QuerierSmRxPkt, AVersion1QuerierIgnoresVersion2ReportsAndLeaves) {
  startAs(igmpVersion1);
  boundTo("239.0.0.0/8");  // the version is asked first
  receiveV2Report(group_);
  receiveV2Report(reserved_);
  receiveLeave(group_);
  receiveLeave(unicast_);  // but whether it is multicast before that
  EXPECT_TRUE(nothingPublished());
  EXPECT_EQ(traced("Ignoring V2 Reports as Igmp version configured is 1"), 2u);
  EXPECT_EQ(traced("Ignoring V2 Leaves as Igmp version configured is 1"), 1u);
}

TEST_F(QuerierSmRxPkt, ALeaveOfAKnownGroupIsHandledAndCounted) {
  startAs(igmpVersion2);
  receiveV2Report(group_);
  forget();
  receiveLeave(group_);
  EXPECT_THAT(counted(), ElementsAre("v2LeaveReceived 1"));
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxLeave()"), 1u);
}

TEST_F(QuerierSmRxPkt, ALeaveOfAnUnknownGroupCountsNothing) {
  startAs(igmpVersion2);
  receiveLeave(group_);
  receiveLeave(reserved_);  // reserved groups are not distinguished here
  EXPECT_TRUE(nothingPublished());
  EXPECT_EQ(traced("Group 239.1.1.1 doesn't exist, so leave is ignored"), 1u);
  EXPECT_EQ(traced("Group 224.0.0.5 doesn't exist, so leave is ignored"), 1u);
}

TEST_F(QuerierSmRxPkt, ALeaveOfAReservedGroupThatIsThereIsTaken) {
  startAs(igmpVersion2);
  receiveV2Query(higher_, reserved_);  // a query created it
  receiveLeave(reserved_);
  EXPECT_EQ(status_->v2LeaveReceived(), 1u);
}

TEST_F(QuerierSmRxPkt, ALeaveOfANonMulticastGroupIsDroppedSilently) {
  startAs(igmpVersion2);
  receiveLeave(unicast_);
  EXPECT_TRUE(nothingPublished());
  EXPECT_THAT(traceTexts(), Not(Contains("Group 10.9.9.9 doesn't exist, so leave is ignored")));
}

TEST_F(QuerierSmRxPkt, ALeaveInsideTheBoundaryIsCountedThereOnlyEvenForAnUnknownGroup) {
  startAs(igmpVersion2);
  boundTo("239.0.0.0/8");
  receiveLeave(group_);
  EXPECT_THAT(counted(), ElementsAre("mcastBoundaryPktReceived 1"));
  EXPECT_EQ(traced(boundaryGroup + "239.1.1.1"), 1u);
  EXPECT_EQ(traced("McastBoundaryPktReceived count:1"), 1u);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
