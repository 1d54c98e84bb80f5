// Every function of a group or source machine that can be called from outside outlives the end of
// its machine, in whichever notification of that function the machine's owner releases it.
#include "NotificationBench.h"

namespace Gmp::Igmp::testing {

namespace {

// Releases the querier, the root of the watched tree, at one notification.
class TreeRelease final : public Mox::TreeNotifiee {
 public:
  TreeRelease(size_t at, std::function<void()> release) : at_(at), release_(std::move(release)) {}
  void onAttr(const Mox::EntityBase&, Mox::AttrId) override { count(); }
  void onMember(const Mox::EntityBase&, Mox::AttrId, U32) override { count(); }
  void onCollection(const Mox::EntityBase&, Mox::AttrId) override { count(); }
  bool released() const { return notified_ > at_; }

 private:
  void count() {
    if (notified_++ == at_) release_();
  }
  const size_t at_;
  const std::function<void()> release_;
  size_t notified_ = 0;
};

class QuerierGroupEntryPoint : public NotificationBench {
 protected:
  static constexpr IpAddr excluded_{192, 0, 2, 3};

  // Ends the group at each notification of the call, which makes at least that many: alone, with
  // its querier, and with its querier by a notifiee of the whole tree.
  void expectOutlives(size_t least, const Deed& prepare, const Deed& call) {
    const auto endGroup = [&] { querier_->groupSmDel(group_); };
    const auto expectEnded = [&] {
      EXPECT_EQ(groupSm(group_), nullptr);
      EXPECT_EQ(groupStatus(group_), nullptr);
      EXPECT_EQ(wheel_->armed(), 0u);
    };
    const auto expectReleased = [&] { EXPECT_EQ(wheel_->armed(), 0u); };
    EXPECT_GE(interfereAtEach(prepare, call, endGroup, expectEnded), least);
    EXPECT_GE(interfereAtEach(
                  prepare, call, [&] { release(); }, expectReleased),
              least);
    for (size_t at = 0;; ++at) {
      SCOPED_TRACE("released by a tree notifiee at notification " + std::to_string(at));
      freshWorld();
      prepare();
      TreeRelease tree(at, [&] { release(); });
      querier_->treeNotifieeAdd(&tree);
      querier_->treeWatchedIs();
      makeWatched();
      call();
      if (!tree.released()) {
        querier_->treeNotifieeRemove(&tree);
        break;
      }
      expectReleased();
    }
  }
  // A group in EXCLUDE mode with two sources that are wanted and one that is not.
  void prepareGroup() {
    startQuiet();
    receiveRecord(4, group_);
    for (const IpAddr addr : {source_, host_}) {
      getOrCreateSourceSm(groupSm(group_), addr)->doSetTimer(100.0);
    }
    getOrCreateSourceSm(groupSm(group_), excluded_);
  }
  void prepareAsking() {
    prepareGroup();
    receiveLeave(group_);
  }
  // The machine, which only its querier keeps alive.
  QuerierGroupSm* raw() const { return groupSm(group_).get(); }

 private:
  void makeWatched() const {
    const Ptr<QuerierGroupSm> sm = groupSm(group_);
    if (!sm) return;
    sm->treeWatchedIs();
    for (const IpAddr addr : sm->source().keys()) sm->source(addr)->treeWatchedIs();
  }
};

TEST_F(QuerierGroupEntryPoint, doSetTimerOfTheMembership) {
  expectOutlives(
      2, [&] { prepareGroup(); },
      [&] { raw()->doSetTimer(QuerierGroupSm::membershipTimerId, 5.0); });
}

TEST_F(QuerierGroupEntryPoint, doSetTimerOfTheRetransmission) {
  const auto prepare = [&] {
    prepareGroup();
    querier_->transitionToNonQuerierIs(true);
  };
  expectOutlives(3, prepare, [&] { raw()->doSetTimer(QuerierGroupSm::rexmitTimerId, 5.0); });
}

TEST_F(QuerierGroupEntryPoint, handleInitialized) {
  const auto prepare = [&] {
    prepareAsking();
    raw()->initializedIs(false);
  };
  expectOutlives(4, prepare, [&] { raw()->handleInitialized(); });
}

TEST_F(QuerierGroupEntryPoint, handleMembershipTimer) {
  expectOutlives(
      5, [&] { prepareAsking(); }, [&] { raw()->handleMembershipTimer(); });
}

TEST_F(QuerierGroupEntryPoint, handleMembershipTimerOfTheWholeGroup) {
  const auto prepare = [&] {
    startQuiet();
    receiveRecord(4, group_);
  };
  expectOutlives(4, prepare, [&] { raw()->handleMembershipTimer(); });
}

TEST_F(QuerierGroupEntryPoint, handleV1MembershipTimer) {
  const auto prepare = [&] {
    prepareGroup();
    receiveV1Report(group_);
  };
  expectOutlives(2, prepare, [&] { raw()->handleV1MembershipTimer(); });
}

TEST_F(QuerierGroupEntryPoint, handleV2MembershipTimer) {
  const auto prepare = [&] {
    prepareGroup();
    receiveV2Report(group_);
  };
  expectOutlives(2, prepare, [&] { raw()->handleV2MembershipTimer(); });
}

TEST_F(QuerierGroupEntryPoint, handleRexmitTimer) {
  expectOutlives(
      8, [&] { prepareAsking(); }, [&] { raw()->handleRexmitTimer(); });
}

TEST_F(QuerierGroupEntryPoint, handleRexmitTimerForTheLastTime) {
  config_->lastMemberQueryCountIs(1);
  const auto prepare = [&] {
    config_->lastMemberQueryCountIs(1);
    prepareAsking();
  };
  expectOutlives(8, prepare, [&] { raw()->handleRexmitTimer(); });
}

TEST_F(QuerierGroupEntryPoint, handleQuerierVersion) {
  const auto prepare = [&] {
    prepareGroup();
    status_->querierVersionIs(igmpVersion2);
  };
  expectOutlives(1, prepare, [&] { raw()->handleQuerierVersion(); });
}

TEST_F(QuerierGroupEntryPoint, handleRxV1Report) {
  expectOutlives(
      8, [&] { prepareAsking(); }, [&] { raw()->handleRxV1Report(); });
}

TEST_F(QuerierGroupEntryPoint, handleRxV2Report) {
  expectOutlives(
      8, [&] { prepareAsking(); }, [&] { raw()->handleRxV2Report(); });
}

TEST_F(QuerierGroupEntryPoint, handleRxLeave) {
  expectOutlives(
      8, [&] { prepareGroup(); }, [&] { raw()->handleRxLeave(); });
}

TEST_F(QuerierGroupEntryPoint, handleRxV3Report) {
  IgmpGroupRecord record{igmpVersion3, RecordType(3), group_, {}};
  record.newSource(lower_, true);
  expectOutlives(
      8, [&] { prepareGroup(); }, [&] { raw()->handleRxV3Report(record); });
}

TEST_F(QuerierGroupEntryPoint, handleRxOldGroupQuery) {
  expectOutlives(
      2, [&] { prepareGroup(); }, [&] { raw()->handleRxGSQuery(); });
}

TEST_F(QuerierGroupEntryPoint, handleRxGSQuery) {
  const IgmpQuery query{.maxResponseCode = 10, .groupAddress = group_, .qrv = 2, .source = {}};
  expectOutlives(
      2, [&] { prepareGroup(); }, [&] { raw()->handleRxGSQuery(query); });
}

TEST_F(QuerierGroupEntryPoint, handleRxGSSQuery) {
  IgmpQuery query{.maxResponseCode = 10, .groupAddress = group_, .qrv = 2, .source = {}};
  query.newSource(source_, true);
  query.newSource(host_, true);
  expectOutlives(
      4, [&] { prepareGroup(); }, [&] { raw()->handleRxGSSQuery(query); });
}

TEST_F(QuerierGroupEntryPoint, toRexmitState) {
  expectOutlives(
      3, [&] { prepareGroup(); }, [&] { raw()->toRexmitState(source_); });
}

TEST_F(QuerierGroupEntryPoint, sourceIs) {
  expectOutlives(
      2, [&] { prepareGroup(); }, [&] { raw()->sourceIs(lower_, wheel_); });
}

TEST_F(QuerierGroupEntryPoint, getOrCreateSourceSm) {
  expectOutlives(
      2, [&] { prepareGroup(); }, [&] { getOrCreateSourceSm(raw(), lower_); });
}

TEST_F(QuerierGroupEntryPoint, sourceDel) {
  expectOutlives(
      2, [&] { prepareGroup(); }, [&] { raw()->sourceDel(source_); });
}

TEST_F(QuerierGroupEntryPoint, sourceDelAll) {
  expectOutlives(
      6, [&] { prepareGroup(); }, [&] { raw()->sourceDelAll(); });
}

TEST_F(QuerierGroupEntryPoint, rexmitSourceDelAll) {
  expectOutlives(
      2, [&] { prepareAsking(); }, [&] { raw()->rexmitSourceDelAll(); });
}

TEST_F(QuerierGroupEntryPoint, handleSource) {
  const auto prepare = [&] {
    startQuiet();
    getOrCreateGroupSm(querier_, group_);
    groupStatus(group_)->sourceIs(source_);
  };
  expectOutlives(1, prepare, [&] { raw()->handleSource(source_); });
}

class QuerierSourceEntryPoint : public QuerierGroupEntryPoint {
 protected:
  // Ends the source alone, too.
  void expectSourceOutlives(size_t least, const Deed& prepare, const Deed& call) {
    expectOutlives(least, prepare, call);
    const auto endSource = [&] { groupSm(group_)->sourceDel(source_); };
    const auto expectEnded = [&] {
      const Ptr<QuerierGroupSm> sm = groupSm(group_);
      EXPECT_TRUE(!sm || !sm->source(source_));
      const Ptr<QuerierGroupStatus> status = groupStatus(group_);
      EXPECT_TRUE(!status || !status->source(source_));
    };
    EXPECT_GE(interfereAtEach(prepare, call, endSource, expectEnded), least);
  }
  QuerierGroupSourceSm* rawSource() const { return raw()->source(source_).get(); }
};

TEST_F(QuerierSourceEntryPoint, doSetTimer) {
  const auto prepare = [&] {
    prepareGroup();
    rawSource()->doSetTimer(never);
  };
  expectSourceOutlives(4, prepare, [&] { rawSource()->doSetTimer(5.0); });
}

TEST_F(QuerierSourceEntryPoint, handleInitialized) {
  const auto prepare = [&] {
    prepareGroup();
    rawSource()->initializedIs(false);
  };
  expectSourceOutlives(5, prepare, [&] { rawSource()->handleInitialized(); });
}

TEST_F(QuerierSourceEntryPoint, handleSourceTimerInExcludeMode) {
  expectSourceOutlives(
      4, [&] { prepareGroup(); }, [&] { rawSource()->handleSourceTimer(); });
}

TEST_F(QuerierSourceEntryPoint, handleSourceTimerInIncludeMode) {
  const auto prepare = [&] {
    startQuiet();
    receiveRecord(5, group_, {source_, host_});
    receiveRecord(6, group_, {source_});
  };
  expectSourceOutlives(6, prepare, [&] { rawSource()->handleSourceTimer(); });
}

}  // namespace

}  // namespace Gmp::Igmp::testing
