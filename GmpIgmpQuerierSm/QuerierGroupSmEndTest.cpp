// A notifiee ends a group or its sources in the middle of a handler: nothing is armed or written
// for the ended machines, and the others stay consistent.
#include "NotificationBench.h"

namespace Gmp::Igmp::testing {

namespace {

class QuerierGroupSmEnd : public NotificationBench {
 protected:
  // The state of the group before the action. It has two requested sources and, in EXCLUDE mode, an
  // excluded one; `asking` means that queries are pending.
  struct State {
    IgmpFilterMode mode;
    IgmpVersion compatibility;
    bool asking;
  };
  static std::vector<State> states() {
    std::vector<State> all;
    for (const auto mode : {filterModeInclude, filterModeExclude}) {
      for (const auto version : {igmpVersion1, igmpVersion2, igmpVersion3}) {
        for (const bool asking : {false, true}) all.push_back({mode, version, asking});
      }
    }
    return all;
  }

  void prepare(const State& state) {
    startQuiet();
    const Ptr<QuerierGroupSm> sm = getOrCreateGroupSm(querier_, group_);
    sm->groupStatus()->filterModeIs(state.mode);
    getOrCreateSourceSm(sm, source_)->doSetTimer(1.5);
    getOrCreateSourceSm(sm, host_)->doSetTimer(100.0);
    if (state.mode == filterModeExclude) {
      getOrCreateSourceSm(sm, lower_);
      sm->doSetTimer(QuerierGroupSm::membershipTimerId, 2.5);
    }
    if (state.compatibility == igmpVersion1) {
      sm->doSetTimer(QuerierGroupSm::v1MembershipTimerId, 1.25);
    }
    sm->groupStatus()->compatibilityModeIs(state.compatibility);
    if (state.asking) receiveLeave(group_);
  }

  // Each machine has its status entry, each status entry its machine, and each armed timer belongs
  // to a machine.
  void expectWhole() const {
    size_t armed = 0;
    for (const auto& [addr, sm] : querier_->groupSm()) {
      ASSERT_EQ(sm->groupStatus(), status_->group(addr));
      armed += sm->membershipTimerState() == timerRunning ? 1U : 0U;
      armed += sm->v1MembershipTimerState() == timerRunning ? 1U : 0U;
      armed += sm->v2MembershipTimerState() == timerRunning ? 1U : 0U;
      armed += sm->rexmitTimerState() == timerRunning ? 1U : 0U;
      EXPECT_EQ(sm->source().size(), sm->groupStatus()->source().size());
      for (const auto& [source, sourceSm] : sm->source()) {
        EXPECT_EQ(sourceSm->sourceStatus(), sm->groupStatus()->source(source));
        armed += sourceSm->sourceTimerState() == timerRunning ? 1U : 0U;
      }
    }
    EXPECT_EQ(status_->group().size(), querier_->groupSm().size());
    EXPECT_EQ(wheel_->armed(), armed);
  }

  // Everything that can happen to a group.
  std::vector<std::pair<std::string, Deed>> actions() {
    const std::vector<IpAddr> some{lower_, source_, IpAddr(192, 0, 2, 9)};
    std::vector<std::pair<std::string, Deed>> all{
        {"to include nothing", [=, this] { receiveRecord(3, group_); }},
        {"version 1 report", [=, this] { receiveV1Report(group_); }},
        {"version 2 report", [=, this] { receiveV2Report(group_); }},
        {"leave", [=, this] { receiveLeave(group_); }},
        {"leave without a question",
         [=, this] {
           config_->lastMemberQueryCountIs(0);
           receiveLeave(group_);
         }},
        {"old query", [=, this] { receiveV2Query(higher_, group_); }},
        {"group query", [=, this] { receiveV3Query(higher_, {.group = group_, .code = 1}); }},
        {"source query",
         [=, this] { receiveV3Query(higher_, {.group = group_, .code = 1, .sources = some}); }},
        {"querier version", [=, this] { config_->querierVersionIs(igmpVersion2); }},
        {"timers", [=, this] { runFor(3.0); }},
    };
    for (U8 type = 1; type <= 7; ++type) {
      all.emplace_back("record " + std::to_string(type),
                       [=, this] { receiveRecord(type, group_, some); });
    }
    return all;
  }

  // Each creates the group.
  std::vector<Deed> firstPackets() {
    return {
        [&] { receiveV1Report(group_); },
        [&] { receiveV2Report(group_); },
        [&] { receiveRecord(4, group_, {source_}); },
        [&] { receiveRecord(5, group_, {source_}); },
        [&] { receiveV2Query(higher_, group_); },
        [&] { receiveV3Query(higher_, {.group = group_}); },
        [&] { receiveV3Query(higher_, {.group = group_, .sources = {source_}}); },
    };
  }

  void interfereEverywhere(const Deed& interfere, const Deed& verify) {
    for (const State& state : states()) {
      for (const auto& [name, action] : actions()) {
        SCOPED_TRACE(name + ", " + stringValue(state.mode) + ", " +
                     stringValue(state.compatibility) + (state.asking ? ", asking" : ""));
        const size_t notifications = interfereAtEach([&] { prepare(state); }, action, interfere,
                                                     [&] {
                                                       expectWhole();
                                                       verify();
                                                     });
        EXPECT_GE(notifications, 1U);
      }
    }
  }
};

TEST_F(QuerierGroupSmEnd, TheGroupMayBeEndedAtEachChange) {
  interfereEverywhere([&] { querier_->groupSmDel(group_); },
                      [&] { EXPECT_EQ(notifiedAfter_, 0U); });
}

TEST_F(QuerierGroupSmEnd, TheGroupMayBeEndedWhileItIsCreated) {
  for (const Deed& packet : firstPackets()) {
    const auto endGroup = [&] { querier_->groupSmDel(group_); };
    EXPECT_GE(interfereAtEach([&] { startQuiet(); }, packet, endGroup, [&] { expectWhole(); }), 5U);
  }
}

TEST_F(QuerierGroupSmEnd, AReportForTheSameGroupMayComeWhileItIsCreated) {
  for (const Deed& packet : firstPackets()) {
    const auto report = [&] { receiveRecord(5, group_, {source_}); };
    const auto verify = [&] {
      expectWhole();
      EXPECT_TRUE(groupSm(group_));
      runFor(600.0);
      EXPECT_TRUE(querier_->groupSm().empty());
      expectWhole();
    };
    EXPECT_GE(interfereAtEach([&] { startQuiet(); }, packet, report, verify), 5U);
  }
}

TEST_F(QuerierGroupSmEnd, AReportForTheSameSourceMayComeWhileItIsCreated) {
  const auto prepare = [&] {
    startQuiet();
    receiveRecord(4, group_);
  };
  Ptr<QuerierGroupSourceSm> made;
  const auto report = [&] { receiveRecord(5, group_, {source_}); };
  const auto reportAgain = [&] {
    report();
    made = groupSm(group_)->source(source_);
  };
  const auto verify = [&] {
    expectWhole();
    EXPECT_EQ(groupSm(group_)->source(source_), made);
  };
  EXPECT_GE(interfereAtEach(prepare, report, reportAgain, verify), 3U);
}

TEST_F(QuerierGroupSmEnd, AllSourcesMayBeRemovedAtEachChange) {
  const auto removeAll = [&] {
    if (const Ptr<QuerierGroupSm> sm = groupSm(group_)) sm->sourceDelAll();
  };
  interfereEverywhere(removeAll, [] {});
}

TEST_F(QuerierGroupSmEnd, OneSourceMayBeRemovedAtEachChange) {
  const auto removeOne = [&] {
    if (const Ptr<QuerierGroupSm> sm = groupSm(group_)) sm->sourceDel(host_);
  };
  interfereEverywhere(removeOne, [&] {
    runFor(600.0);
    EXPECT_TRUE(querier_->groupSm().empty());
    expectWhole();
  });
}

}  // namespace

}  // namespace Gmp::Igmp::testing
