// The IGMP querier of one interface (RFC 3376 6): election, queries, the groups with members.
//
// The host creates it on a configuration and a status entity and timer wheels, hands every IPv4
// packet received on the interface to doRxPkt, and transmits the published queries: each step of
// `writableCount` is one query in `sendPkt` (the IGMP message alone) for `dstGroup` (0.0.0.0: all
// systems). The constructor may publish one, too: a QueryOutput hands out all of them.
//
// It runs from the moment of its construction. Its destruction writes nothing into the status and
// sends nothing; a new instance on the same status takes the groups over. One thread.
//
//   querier = querierSmFactory(config, status, ipAddr, 1500, 30, wheel, wheel, wheel, false);
//   querier->doRxPkt(pkt);
#pragma once

#include <memory>

#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <GmpIgmpQuerier/Types.h>
#include <GmpIgmpQuerierSm/GroupLookahead.h>
#include <GmpIgmpQuerierSm/QuerierGroupSm.h>
#include <Ilvo/IntfBoundaryStatus.h>
#include <Ilvo/IpHdr.h>
#include <Ilvo/Pkt.h>
#include <Mox/Entity.h>
#include <Mox/HashMap.h>
#include <MoxBase/Export.h>
#include <Obel/TimerReactor.h>

namespace Gmp::Igmp {

class MOX_PUBLIC QuerierSm final : public Mox::Entity<QuerierSm> {
 public:
  static constexpr const char* entityTypeName = "Gmp::Igmp::QuerierSm";
  using Wheel = Ptr<const Obel::TimerWheel>;
  using Boundary = Ptr<const Ilvo::IntfBoundaryStatus>;
  using GroupSmMap = Mox::HashMap<IpAddr, Ptr<QuerierGroupSm>>;
  using AddrSet = Mox::HashMap<IpAddr, bool>;

  enum TimerId : U32 { queryIntervalTimerId = 0, otherQuerierTimerId = 1 };

  class MOX_PUBLIC NotifieeConst : public Mox::NotifieeOf<QuerierSm> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onIpAddr() {}
    virtual void onMtu() {}
    virtual void onStartupQueryIntervalDefault() {}
    virtual void onMcastBoundaryIntfStatus() {}
    virtual void onOtherQuerierTimer() {}
    virtual void onOtherQuerierTimerState() {}
    virtual void onTransitionToNonQuerier() {}
    virtual void onPendingRexmit(IpAddr) {}
    virtual void onInitialQuerySent() {}
    virtual void onDstGroup() {}
    virtual void onSendPkt() {}
    virtual void onWritableCount() {}
    virtual void onGroupSm(IpAddr) {}
    virtual void onQueryIntervalTimer() {}
    virtual void onQueryIntervalTimerState() {}
    virtual void onInitGroupStatusBookmark() {}
    virtual void onInitGroupStatusTimer() {}
    virtual void onAttrLogSm() {}
    virtual void onDebugYieldAfterOne() {}
    virtual void onPktSrc() {}
    virtual void onInitialized() {}
  };

  // See querierSmFactory.
  QuerierSm(Ptr<const QuerierConfig> querierConfig, Ptr<QuerierStatus> querierStatus, IpAddr ipAddr,
            U32 mtu, U32 startupQueryIntervalDefault, Wheel otherQuerierTimer,
            Wheel queryIntervalTimer, Wheel initGroupStatusTimer, bool debugYieldAfterOne,
            NotifieeConst* watcher = nullptr);
  ~QuerierSm() override;

  // The configuration's name: the interface.
  Mox::Name name() const { return name_; }
  const Ptr<const QuerierConfig>& querierConfig() const;
  const Ptr<QuerierStatus>& querierStatus() const { return querierStatus_; }
  // Own address on the interface.
  IpAddr ipAddr() const { return ipAddr_; }
  // Bytes; bounds the source list of a query; 0 for no bound.
  U32 mtu() const { return mtu_; }
  // Seconds; a configured startup query interval of this value counts as not configured.
  U32 startupQueryIntervalDefault() const { return startupQueryIntervalDefault_; }
  const Boundary& mcastBoundaryIntfStatus() const { return mcastBoundaryIntfStatus_; }
  const Wheel& otherQuerierTimer() const { return otherQuerierTimer_.wheel(); }
  TimerState otherQuerierTimerState() const { return otherQuerierTimerState_; }
  // A hand-over: the election is lost, but retransmissions are still pending.
  bool transitionToNonQuerier() const { return transitionToNonQuerier_; }
  // The groups whose retransmissions the hand-over waits for.
  const AddrSet& pendingRexmit() const { return pendingRexmit_; }
  // False while the next general query is the first after a silent querier.
  bool initialQuerySent() const { return initialQuerySent_; }
  IpAddr dstGroup() const { return dstGroup_; }
  const Ptr<Ilvo::Pkt>& sendPkt() const { return sendPkt_; }
  // Queries published so far, wraps.
  U32 writableCount() const { return writableCount_; }
  const GroupSmMap& groupSm() const { return groupSm_; }
  // The machine of that group, or null.
  Ptr<QuerierGroupSm> groupSm(IpAddr group) const { return member<&Self::groupSm_>(group); }
  // Carries every group and source timer, too.
  const Wheel& queryIntervalTimer() const { return queryIntervalTimer_.wheel(); }
  TimerState queryIntervalTimerState() const { return queryIntervalTimerState_; }
  // Where the rebuilding of groups resumes; 0.0.0.0 when none is in progress.
  IpAddr initGroupStatusBookmark() const { return initGroupStatusBookmark_; }
  const Wheel& initGroupStatusTimer() const { return initGroupStatusTimer_.wheel(); }
  // Absolute time of the next batch; +infinity when none is due.
  Seconds initGroupStatusTimerMin() const { return initGroupStatusTimer_.timeMin(); }
  const Ptr<GmpAttrLogSm>& attrLogSm() const { return attrLogSm_; }
  bool attrLogClogged() const { return attrLogSm_ && attrLogSm_->isAttrLogClogged(); }
  bool debugYieldAfterOne() const { return debugYieldAfterOne_; }
  // Sender of the packet that is, or was last, being processed.
  IpAddr pktSrc() const { return pktSrc_; }
  bool initialized() const { return initialized_; }

  void ipAddrIs(IpAddr v) { set<&Self::ipAddr_>(v); }
  void mtuIs(U32 v) { set<&Self::mtu_>(v); }
  void startupQueryIntervalDefaultIs(U32 v) { set<&Self::startupQueryIntervalDefault_>(v); }
  // Null for no boundary.
  void mcastBoundaryIntfStatusIs(Boundary v) { set<&Self::mcastBoundaryIntfStatus_>(std::move(v)); }
  void otherQuerierTimerIs(Wheel wheel) { setWheel<&Self::otherQuerierTimer_>(std::move(wheel)); }
  void otherQuerierTimerStateIs(TimerState v) { set<&Self::otherQuerierTimerState_>(v); }
  void transitionToNonQuerierIs(bool v) { set<&Self::transitionToNonQuerier_>(v); }
  void pendingRexmitIs(IpAddr group, bool v) {
    setIs<&Self::pendingRexmit>(pendingRexmit_, group, v);
  }
  void pendingRexmitDel(IpAddr group) { setDel<&Self::pendingRexmit>(pendingRexmit_, group); }
  void pendingRexmitDelAll() { setDelAll<&Self::pendingRexmit>(pendingRexmit_); }
  void pendingRexmitNotify(IpAddr group) { notifyMember<&Self::pendingRexmit>(group); }
  void initialQuerySentIs(bool v) { set<&Self::initialQuerySent_>(v); }
  void dstGroupIs(IpAddr v) { set<&Self::dstGroup_>(v); }
  void sendPktIs(Ptr<Ilvo::Pkt> v) { set<&Self::sendPkt_>(std::move(v)); }
  void writableCountIs(U32 v) { set<&Self::writableCount_>(v); }
  U32 writableCountInc(U32 by) { return inc<&Self::writableCount_>(by); }
  void queryIntervalTimerIs(Wheel wheel) { setWheel<&Self::queryIntervalTimer_>(std::move(wheel)); }
  void queryIntervalTimerStateIs(TimerState v) { set<&Self::queryIntervalTimerState_>(v); }
  void initGroupStatusBookmarkIs(IpAddr v) { set<&Self::initGroupStatusBookmark_>(v); }
  void initGroupStatusTimerIs(Wheel wheel) {
    setWheel<&Self::initGroupStatusTimer_>(std::move(wheel));
  }
  // Null for none: the log is never clogged then.
  void attrLogSmIs(Ptr<GmpAttrLogSm> v) { set<&Self::attrLogSm_>(std::move(v)); }
  void debugYieldAfterOneIs(bool v) { set<&Self::debugYieldAfterOne_>(v); }
  void pktSrcIs(IpAddr v) { set<&Self::pktSrc_>(v); }
  void initializedIs(bool v) { set<&Self::initialized_>(v); }

  // The machine of that group, created on those wheels if absent. Throws a NameInUseError, which
  // names the wheel that differs, when it exists on others.
  Ptr<QuerierGroupSm> groupSmIs(IpAddr group, const Wheel& membership, const Wheel& v1,
                                const Wheel& v2, const Wheel& rexmit);
  // Ends the machine and deletes its status entry.
  void groupSmDel(IpAddr group);
  void groupSmDel(GroupSmMap::const_iterator at) { groupSmDel((*at).key); }
  void groupSmDelAll();
  // Its destruction takes as long as it has groups. A host that cannot wait ends it before, which
  // does the same but for them, and deletes them a few at a time.
  void end();
  // Notifies of that machine without changing anything.
  void groupSmNotify(IpAddr group) { notifyMember<&Self::groupSm_>(group); }

  // Processes one received packet, which begins at its IPv4 header: validates, counts, dispatches.
  // The packet's offsets move; its bytes do not change.
  void doRxPkt(const Ptr<Ilvo::Pkt>& pkt);
  // Prefetches the memory that this packet will use. For a host that receives packets in batches,
  // which calls it for each packet GroupLookahead::ahead packets before it hands that packet in.
  void prefetchRxPkt(const Ilvo::Pkt& pkt);
  // Takes the querier role now; the first general query follows within 10 seconds.
  void becomeQuerier();
  // Sets the query and packet counters to 0. On a querier, the startup queries run again.
  void clearCounters();
  // True when the group lies inside the interface's multicast boundary.
  bool checkMcastIntfBoundaryStatus(IpAddr group) const;
  // Evaluates one received query for the election; the packet's front is at its IGMP message (RFC
  // 3376 6.6.2).
  void doQuerierElection(const Ilvo::IpHdr& ip, const Ptr<Ilvo::Pkt>& pkt);
  // Arms a timer `seconds` from now, or disables it with +infinity, and publishes when it expires.
  void doSetTimer(TimerId id, Seconds seconds);

  void handleInitialized();
  void handleQueryIntervalTimer();
  void handleOtherQuerierTimer();
  void handleQueryResponseInterval();
  void handleRobustness();
  void handleQuerierVersion();
  void handleQueryInterval();
  void handleStartupQueryInterval();
  void handleSendQuery();
  void handleGroupSm(IpAddr group);
  // The group's retransmission timer was set: counts during a hand-over, which the last group ends.
  void handleGroupRexmit(IpAddr group, TimerState rexmitState);
  // One batch of rebuilding group machines from the status.
  void handleQuerierGroupStatus();
  // Rebuilds the machines of one group from its status entry.
  void handleQuerierGroupStatus(IpAddr group);

 private:
  using Self = QuerierSm;
  class ConfigReactor;

  // A validated message as the handlers of the receive path get it.
  struct RxIgmp {
    const Ilvo::IpHdr& ip;
    const Ptr<Ilvo::Pkt>& pkt;
    IpAddr group;
  };
  // The front moves to the IGMP message and the end to its last byte; false when the packet is
  // dropped.
  bool acceptIp(const Ptr<Ilvo::Pkt>& pkt, Ilvo::IpHdr& ip);
  void dispatchIgmp(const Ilvo::IpHdr& ip, const Ptr<Ilvo::Pkt>& pkt);
  void dropPacket() { querierStatus_->errorPacketReceivedInc(1); }
  bool dropAtBoundary(IpAddr group, const char* found, const char* count);
  IgmpVersion countQuery(const Ilvo::Pkt& pkt);
  void reportVersionDiscrepancy(IgmpVersion received, IpAddr group);
  void rxQuery(const RxIgmp& rx);
  void rxV3SpecificQuery(const RxIgmp& rx);
  void rxV1Report(const RxIgmp& rx);
  void rxV2Report(const RxIgmp& rx);
  void rxV2Leave(const RxIgmp& rx);
  void rxV3Report(const RxIgmp& rx);

  void roleIs(QuerierStatus::QuerierState role, Mox::Place by = Mox::Place::here());
  void loseElection();
  bool isRexmitPending(IpAddr group) const;
  void pendingRexmitDelDone();
  void adoptQuerierValues(const Ptr<Ilvo::Pkt>& pkt);
  Seconds nextGeneralQueryDelay() const;
  void yieldGroupStatus(IpAddr next);
  bool dropStaleGroup(QuerierGroupStatus& status);
  void rebuildTimers(const Ptr<QuerierGroupSm>& groupSm, const QuerierGroupStatus& status);
  void rebuildSources(const Ptr<QuerierGroupSm>& groupSm, const QuerierGroupStatus& status);

  Mox::Name name_;
  IpAddr ipAddr_;
  U32 mtu_;
  U32 startupQueryIntervalDefault_;
  TimerState otherQuerierTimerState_ = timerDisabled;
  TimerState queryIntervalTimerState_ = timerDisabled;
  bool transitionToNonQuerier_ = false;
  bool initialQuerySent_ = true;
  bool debugYieldAfterOne_;
  bool initialized_ = false;
  bool ended_ = false;
  IpAddr initGroupStatusBookmark_;
  IpAddr pktSrc_;
  IpAddr dstGroup_;
  U32 writableCount_ = 0;
  Ptr<Ilvo::Pkt> sendPkt_;
  // Released from the last to the first: groups, pending groups, timers, status, configuration,
  // boundary, monitor. Each is still held while those declared after it are released.
  Ptr<GmpAttrLogSm> attrLogSm_;
  Boundary mcastBoundaryIntfStatus_;
  std::unique_ptr<ConfigReactor> querierConfig_;
  Ptr<QuerierStatus> querierStatus_;
  Obel::TimerReactor<QuerierSm, &QuerierSm::handleOtherQuerierTimer> otherQuerierTimer_;
  Obel::TimerReactor<QuerierSm, &QuerierSm::handleQueryIntervalTimer> queryIntervalTimer_;
  Obel::TimerReactor<QuerierSm, &QuerierSm::handleQuerierGroupStatus> initGroupStatusTimer_;
  AddrSet pendingRexmit_;
  GroupSmMap groupSm_;
  GroupLookahead lookahead_{groupSm_};

  friend class Mox::Entity<QuerierSm>;

 public:
  // Names the collection to its members.
  static constexpr auto groupSmMember = &QuerierSm::groupSm_;
  static constexpr Mox::AttrTable attributes{
      Mox::Constant{"name", &Self::name},
      Mox::Constant{"querierConfig", &Self::querierConfig},
      Mox::Part{"querierStatus", &Self::querierStatus_},
      Mox::Attr{"ipAddr", &Self::ipAddr_, &Self::ipAddrIs, &NotifieeConst::onIpAddr},
      Mox::Attr{"mtu", &Self::mtu_, &Self::mtuIs, &NotifieeConst::onMtu, Mox::Unit::bytes},
      Mox::Attr{"startupQueryIntervalDefault", &Self::startupQueryIntervalDefault_,
                &Self::startupQueryIntervalDefaultIs, &NotifieeConst::onStartupQueryIntervalDefault,
                Mox::Unit::seconds},
      Mox::Attr{"mcastBoundaryIntfStatus", &Self::mcastBoundaryIntfStatus_,
                &Self::mcastBoundaryIntfStatusIs, &NotifieeConst::onMcastBoundaryIntfStatus},
      Mox::Timer{"otherQuerierTimer", &Self::otherQuerierTimer_, &Self::otherQuerierTimerIs,
                 &NotifieeConst::onOtherQuerierTimer},
      Mox::Attr{"otherQuerierTimerState", &Self::otherQuerierTimerState_,
                &Self::otherQuerierTimerStateIs, &NotifieeConst::onOtherQuerierTimerState},
      Mox::Attr{"transitionToNonQuerier", &Self::transitionToNonQuerier_,
                &Self::transitionToNonQuerierIs, &NotifieeConst::onTransitionToNonQuerier},
      Mox::Set{"pendingRexmit", &Self::pendingRexmit, &Self::pendingRexmitIs,
               &Self::pendingRexmitDel, &NotifieeConst::onPendingRexmit},
      Mox::Attr{"initialQuerySent", &Self::initialQuerySent_, &Self::initialQuerySentIs,
                &NotifieeConst::onInitialQuerySent},
      Mox::Attr{"dstGroup", &Self::dstGroup_, &Self::dstGroupIs, &NotifieeConst::onDstGroup},
      Mox::Attr{"sendPkt", &Self::sendPkt_, &Self::sendPktIs, &NotifieeConst::onSendPkt},
      Mox::Counter{"writableCount", &Self::writableCount_, &Self::writableCountIs,
                   &Self::writableCountInc, &NotifieeConst::onWritableCount},
      Mox::Members{"groupSm", &Self::groupSm_, &NotifieeConst::onGroupSm},
      Mox::Timer{"queryIntervalTimer", &Self::queryIntervalTimer_, &Self::queryIntervalTimerIs,
                 &NotifieeConst::onQueryIntervalTimer},
      Mox::Attr{"queryIntervalTimerState", &Self::queryIntervalTimerState_,
                &Self::queryIntervalTimerStateIs, &NotifieeConst::onQueryIntervalTimerState},
      Mox::Attr{"initGroupStatusBookmark", &Self::initGroupStatusBookmark_,
                &Self::initGroupStatusBookmarkIs, &NotifieeConst::onInitGroupStatusBookmark},
      Mox::Timer{"initGroupStatusTimer", &Self::initGroupStatusTimer_,
                 &Self::initGroupStatusTimerIs, &NotifieeConst::onInitGroupStatusTimer},
      Mox::Attr{"attrLogSm", &Self::attrLogSm_, &Self::attrLogSmIs, &NotifieeConst::onAttrLogSm},
      Mox::Attr{"debugYieldAfterOne", &Self::debugYieldAfterOne_, &Self::debugYieldAfterOneIs,
                &NotifieeConst::onDebugYieldAfterOne},
      Mox::Attr{"pktSrc", &Self::pktSrc_, &Self::pktSrcIs, &NotifieeConst::onPktSrc},
      Mox::Attr{"initialized", &Self::initialized_, &Self::initializedIs,
                &NotifieeConst::onInitialized},
      Mox::Operation{"handleInitialized", &Self::handleInitialized},
      Mox::Operation{"becomeQuerier", &Self::becomeQuerier},
      Mox::Operation{"clearCounters", &Self::clearCounters},
      Mox::Operation{"doRxPkt", &Self::doRxPkt},
  };
};

constexpr const char* enumerationName(QuerierSm::TimerId) {
  return "Gmp::Igmp::QuerierSm::TimerId";
}
constexpr auto enumerators(QuerierSm::TimerId) {
  using Sm = QuerierSm;
  return std::array{Mox::enumerator(Sm::queryIntervalTimerId, "queryIntervalTimerId"),
                    Mox::enumerator(Sm::otherQuerierTimerId, "otherQuerierTimerId")};
}

// The text of a querier in a trace, which may be printed after its end.
struct QuerierSmText {
  Mox::Name name;
};
inline QuerierSmText tracePart(const QuerierSm& sm) { return {sm.name()}; }
MOX_PUBLIC void appendText(std::string& out, QuerierSmText text);

// The text of a wheel in an error: its address.
MOX_PUBLIC std::string wheelText(const QuerierSm::Wheel& wheel);

// A querier that runs at once. Address and MTU are the interface's; an MTU of 0 sets no bound to a
// query's length. `startupQueryIntervalDefault` in seconds, 0 for none. Other-querier timer,
// general queries with all group and source timers, and the rebuilding of groups may run on one
// wheel or on three. `debugYieldAfterOne` makes the rebuilding stop after each group. `watcher`, if
// there is one, watches the querier from before its first handler runs.
MOX_PUBLIC Ptr<QuerierSm> querierSmFactory(
    Ptr<const QuerierConfig> querierConfig, Ptr<QuerierStatus> querierStatus, IpAddr ipAddr,
    U32 mtu, U32 startupQueryIntervalDefault, QuerierSm::Wheel otherQuerierTimer,
    QuerierSm::Wheel queryIntervalTimer, QuerierSm::Wheel initGroupStatusTimer,
    bool debugYieldAfterOne, QuerierSm::NotifieeConst* watcher = nullptr);

// The machine of that group in the querier. Created if absent: from the status entry when there is
// one, else as a new group.
MOX_PUBLIC Ptr<QuerierGroupSm> getOrCreateGroupSm(Ptr<QuerierSm> querier, IpAddr group);

}  // namespace Gmp::Igmp
