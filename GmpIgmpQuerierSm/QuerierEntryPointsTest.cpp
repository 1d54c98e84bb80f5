// Every function of a querier that can be called from outside outlives the release of its caller's
// pointer, in whichever notification of that function the pointer is released.
#include "SendQuery.h"

#include "NotificationBench.h"

namespace Gmp::Igmp::testing {

using Status = QuerierStatus;

namespace {

class QuerierEntryPoint : public NotificationBench {
 protected:
  // Releases the querier at each notification of the call, which makes at least that many.
  void expectOutlives(size_t least, const Deed& prepare, const Deed& call) {
    const size_t notifications = interfereAtEach(
        prepare, call, [&] { release(); },
        [&] {
          EXPECT_EQ(wheel_->armed(), 0u);
          EXPECT_EQ(config_->notifieeList().size(), 0u);
          EXPECT_EQ(config_->refs(), 1u);
        });
    EXPECT_GE(notifications, least);
  }
  void startInitial() {
    config_->sendQueryIs(false);
    start();
  }
  // With status entries that have no machine yet: the first is stale.
  void startBeforeGroups() {
    startInitial();
    status_->groupIs(group_)->sourceIs(source_)->expiredIs(true);
    status_->groupIs(group2_)->filterModeIs(filterModeExclude);
    status_->group(group2_)->sourceIs(source_);
    status_->group(group2_)->sourceIs(host_);
  }
  void startWithGroups() {
    startQuiet();
    for (const IpAddr group : {group_, group2_}) {
      receiveRecord(4, group);
      receiveRecord(5, group, {source_, host_});
    }
  }
  QuerierSm* raw() const { return querier_.get(); }
};

TEST_F(QuerierEntryPoint, doSetTimer) {
  expectOutlives(
      2, [&] { start(); }, [&] { querier_->doSetTimer(QuerierSm::otherQuerierTimerId, 5.0); });
}

TEST_F(QuerierEntryPoint, handleInitialized) {
  const auto prepare = [&] {
    startInitial();
    status_->queryResponseIntervalIs(1.0);
    status_->robustnessIs(7);
    status_->startupQueryIntervalIs(1.0);
  };
  expectOutlives(3, prepare, [&] { querier_->handleInitialized(); });
}

TEST_F(QuerierEntryPoint, clearCounters) {
  const auto prepare = [&] {
    start();
    status_->v1QueriesSentInc(1);
    status_->otherPacketReceivedInc(1);
  };
  expectOutlives(2, prepare, [&] { querier_->clearCounters(); });
}

TEST_F(QuerierEntryPoint, handleQueryResponseInterval) {
  const auto prepare = [&] {
    start();
    status_->queryResponseIntervalIs(1.0);
  };
  expectOutlives(1, prepare, [&] { querier_->handleQueryResponseInterval(); });
}

TEST_F(QuerierEntryPoint, handleRobustness) {
  const auto prepare = [&] {
    start();
    status_->robustnessIs(7);
  };
  expectOutlives(1, prepare, [&] { querier_->handleRobustness(); });
}

TEST_F(QuerierEntryPoint, handleQuerierVersion) {
  const auto prepare = [&] {
    startWithGroups();
    status_->querierVersionIs(igmpVersion1);
    status_->group(group_)->compatibilityModeIs(igmpVersion1);
  };
  expectOutlives(2, prepare, [&] { querier_->handleQuerierVersion(); });
}

TEST_F(QuerierEntryPoint, handleQueryInterval) {
  const auto prepare = [&] {
    start();
    status_->queryIntervalIs(1.0);
  };
  expectOutlives(3, prepare, [&] { querier_->handleQueryInterval(); });
}

TEST_F(QuerierEntryPoint, handleStartupQueryInterval) {
  const auto prepare = [&] {
    start();
    status_->startupQueryIntervalIs(1.0);
  };
  expectOutlives(1, prepare, [&] { querier_->handleStartupQueryInterval(); });
}

TEST_F(QuerierEntryPoint, handleSendQueryOff) {
  const auto prepare = [&] {
    startInitial();
    status_->stateIs(Status::querierStateQuerier);
    querier_->doSetTimer(QuerierSm::queryIntervalTimerId, 5.0);
    querier_->doSetTimer(QuerierSm::otherQuerierTimerId, 5.0);
  };
  expectOutlives(5, prepare, [&] { querier_->handleSendQuery(); });
}

TEST_F(QuerierEntryPoint, handleSendQueryOn) {
  const auto prepare = [&] {
    start();
    status_->stateIs(Status::querierStateNonQuerier);
  };
  expectOutlives(2, prepare, [&] { querier_->handleSendQuery(); });
}

TEST_F(QuerierEntryPoint, becomeQuerier) {
  expectOutlives(
      4, [&] { startInitial(); }, [&] { querier_->becomeQuerier(); });
}

TEST_F(QuerierEntryPoint, doQuerierElection) {
  const auto election = [&] {
    const auto pkt =
        makePtr<Ilvo::Pkt>(Ilvo::buildV3Query({.qrv = 3, .qqic = 60}, {.src = lower_}));
    const std::optional<Ilvo::IpHdr> ip = Ilvo::IpHdr::of(*pkt);
    pkt->frontOffsetInc(ip->headerBytes());
    querier_->doQuerierElection(*ip, pkt);
  };
  expectOutlives(
      6, [&] { start(); }, election);
}

TEST_F(QuerierEntryPoint, handleOtherQuerierTimer) {
  const auto prepare = [&] {
    start();
    receiveV3Query(lower_, {.qrv = 3, .qqic = 60});
  };
  expectOutlives(8, prepare, [&] { querier_->handleOtherQuerierTimer(); });
}

TEST_F(QuerierEntryPoint, handleQueryIntervalTimer) {
  expectOutlives(
      3, [&] { start(); }, [&] { querier_->handleQueryIntervalTimer(); });
}

TEST_F(QuerierEntryPoint, handleGroupSm) {
  const auto prepare = [&] {
    start();
    status_->groupIs(group_);
  };
  expectOutlives(1, prepare, [&] { querier_->handleGroupSm(group_); });
}

TEST_F(QuerierEntryPoint, handleGroupRexmit) {
  const auto prepare = [&] {
    start();
    querier_->transitionToNonQuerierIs(true);
    querier_->pendingRexmitIs(group_, true);
  };
  expectOutlives(3, prepare, [&] { querier_->handleGroupRexmit(group_, timerDisabled); });
}

TEST_F(QuerierEntryPoint, pendingRexmitDelAll) {
  const auto prepare = [&] {
    start();
    querier_->pendingRexmitIs(group_, true);
    querier_->pendingRexmitIs(group2_, true);
  };
  expectOutlives(2, prepare, [&] { querier_->pendingRexmitDelAll(); });
}

TEST_F(QuerierEntryPoint, groupSmIs) {
  const auto create = [&] { querier_->groupSmIs(group_, wheel_, wheel_, wheel_, wheel_); };
  expectOutlives(
      3, [&] { startQuiet(); }, create);
}

TEST_F(QuerierEntryPoint, groupSmDel) {
  expectOutlives(
      2, [&] { startWithGroups(); }, [&] { querier_->groupSmDel(group_); });
}

TEST_F(QuerierEntryPoint, groupSmDelAll) {
  expectOutlives(
      4, [&] { startWithGroups(); }, [&] { querier_->groupSmDelAll(); });
}

TEST_F(QuerierEntryPoint, getOrCreateGroupSm) {
  expectOutlives(
      3, [&] { startBeforeGroups(); }, [&] { getOrCreateGroupSm(querier_, group_); });
}

TEST_F(QuerierEntryPoint, handleQuerierGroupStatusOfAll) {
  expectOutlives(
      4, [&] { startBeforeGroups(); }, [&] { querier_->handleQuerierGroupStatus(); });
}

TEST_F(QuerierEntryPoint, handleQuerierGroupStatusOfOne) {
  expectOutlives(
      2, [&] { startBeforeGroups(); }, [&] { querier_->handleQuerierGroupStatus(group2_); });
}

TEST_F(QuerierEntryPoint, doRxPkt) {
  expectOutlives(
      5, [&] { startQuiet(); },
      [&] {
        receiveV3Report({{.type = 4, .group = group_, .sources = {source_}},
                         {.type = 5, .group = group2_, .sources = {source_}}});
      });
}

TEST_F(QuerierEntryPoint, sendQuery) {
  const auto prepare = [&] {
    start();
    querier_->dstGroupIs(group_);
  };
  expectOutlives(4, prepare, [&] { sendQuery(raw(), 10.0, IpAddr()); });
}

TEST_F(QuerierEntryPoint, sendGeneralQuery) {
  const auto prepare = [&] {
    start();
    querier_->initialQuerySentIs(false);
  };
  expectOutlives(4, prepare, [&] { sendGeneralQuery(raw()); });
}

TEST_F(QuerierEntryPoint, sendGroupSpecificQuery) {
  const auto prepare = [&] {
    startWithGroups();
    groupSm(group_)->rexmitGroupQueryIs(2);
  };
  expectOutlives(5, prepare, [&] { sendGroupSpecificQuery(raw(), group_); });
}

TEST_F(QuerierEntryPoint, sendGroupAndSourceSpecificQueryHelper) {
  const auto send = [&] {
    std::vector<IpAddr> sources{source_};
    sendGroupAndSourceSpecificQueryHelper(raw(), group_, sources, false);
  };
  expectOutlives(
      4, [&] { startWithGroups(); }, send);
}

TEST_F(QuerierEntryPoint, sendGroupAndSourceSpecificQuery) {
  const auto send = [&] {
    std::vector<IpAddr> clear{source_, host_};
    std::vector<IpAddr> set{source_};
    sendGroupAndSourceSpecificQuery(raw(), group_, clear, set);
  };
  setup_.mtu = 44;  // one source in each packet
  expectOutlives(
      9, [&] { startWithGroups(); }, send);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
