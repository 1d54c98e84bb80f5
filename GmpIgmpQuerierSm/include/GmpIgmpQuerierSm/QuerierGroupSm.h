// Router-side state of one multicast group on one interface (RFC 3376 6.2): group timer, older host
// present timers, sources, and pending retransmissions of specific queries.
//
// Filter mode and compatibility mode live in the published status and nowhere else. The querier
// owns the machine. A handler may end it, and so may a notifiee in the middle of a handler: each
// function that uses the machine after a notification holds a Ptr to it until it returns. After its
// end nothing is armed or written.
#pragma once

#include <memory>
#include <span>
#include <string>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/IgmpGroupRecord.h>
#include <GmpIgmpQuerier/IgmpQuery.h>
#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierGroupStatus.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <GmpIgmpQuerier/Types.h>
#include <GmpIgmpQuerierSm/QuerierGroupSourceSm.h>
#include <Mox/Entity.h>
#include <Mox/HashMap.h>
#include <Mox/Name.h>
#include <MoxBase/Export.h>
#include <Obel/TimerReactor.h>

namespace Gmp::Igmp {

class QuerierSm;

class MOX_PUBLIC QuerierGroupSm final : public Mox::Entity<QuerierGroupSm> {
 public:
  static constexpr const char* entityTypeName = "Gmp::Igmp::QuerierGroupSm";
  using Wheel = Ptr<const Obel::TimerWheel>;
  using SourceMap = Mox::HashMap<IpAddr, Ptr<QuerierGroupSourceSm>>;
  using AddrSet = Mox::HashMap<IpAddr, bool>;

  enum TimerId : U32 {
    membershipTimerId = 0,
    v1MembershipTimerId = 1,
    v2MembershipTimerId = 2,
    rexmitTimerId = 3,
  };

  class MOX_PUBLIC NotifieeConst : public Mox::NotifieeOf<QuerierGroupSm> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onMembershipTimer() {}
    virtual void onMembershipTimerExpiry() {}
    virtual void onMembershipTimerState() {}
    virtual void onV1MembershipTimer() {}
    virtual void onV1MembershipTimerState() {}
    virtual void onV2MembershipTimer() {}
    virtual void onV2MembershipTimerState() {}
    virtual void onRexmitTimer() {}
    virtual void onRexmitTimerExpiry() {}
    virtual void onRexmitTimerState() {}
    virtual void onSource(IpAddr) {}
    virtual void onRexmitSource(IpAddr) {}
    virtual void onRexmitClrSource(IpAddr) {}
    virtual void onRexmitSetSource(IpAddr) {}
    virtual void onRexmitGroupQuery() {}
    virtual void onInitialized() {}
  };

  // Runs at once: finds or creates the status entry, counts a join, disables all timers.
  QuerierGroupSm(IpAddr group, Wheel membershipWheel, Wheel v1Wheel, Wheel v2Wheel,
                 Wheel rexmitWheel, QuerierSm* querierSm);
  ~QuerierGroupSm() override;

  std::string name() const { return {}; }
  IpAddr group() const { return group_; }
  const Ptr<QuerierGroupStatus>& groupStatus() const { return groupStatus_; }
  const Wheel& membershipTimer() const { return membershipTimer_.wheel(); }
  const Wheel& v1MembershipTimer() const { return v1MembershipTimer_.wheel(); }
  const Wheel& v2MembershipTimer() const { return v2MembershipTimer_.wheel(); }
  const Wheel& rexmitTimer() const { return rexmitTimer_.wheel(); }
  // Absolute; +infinity when disabled.
  Seconds membershipTimerExpiry() const { return membershipTimerExpiry_; }
  Seconds rexmitTimerExpiry() const { return rexmitTimerExpiry_; }
  // Seconds left; +infinity when disabled.
  Seconds membershipTimerRemaining() const;
  Seconds rexmitTimerRemaining() const;
  TimerState membershipTimerState() const { return membershipTimerState_; }
  TimerState v1MembershipTimerState() const { return v1MembershipTimerState_; }
  TimerState v2MembershipTimerState() const { return v2MembershipTimerState_; }
  TimerState rexmitTimerState() const { return rexmitTimerState_; }
  const SourceMap& source() const { return source_; }
  // The machine of that source, or null.
  Ptr<QuerierGroupSourceSm> source(IpAddr addr) const { return member<&Self::source_>(addr); }
  // Sources with group-and-source-specific queries still to be sent.
  const AddrSet& rexmitSource() const { return rexmitSource_; }
  // Kept for access by name; the lists of a query are built for each run of the timer.
  const AddrSet& rexmitClrSource() const;
  const AddrSet& rexmitSetSource() const;
  // Group-specific queries still to be sent.
  U32 rexmitGroupQuery() const { return rexmitGroupQuery_; }
  bool initialized() const { return initialized_; }
  // The owner; a call after the machine's end is a fatal assertion.
  QuerierSm& querierSm() const;
  bool ended() const { return parent() == nullptr; }
  // False once its querier has ended, while the machine is still there.
  bool reactsToTimers() const;
  // The owner as the parent entity; null after the end.
  Mox::EntityBase* owner() const { return parent(); }
  // Starts to fetch into the cache what a report will touch.
  void prefetch() const;
  void prefetchStatus() const;

  // Move a timer to another wheel with its time.
  void membershipTimerIs(Wheel wheel) { setWheel<&Self::membershipTimer_>(std::move(wheel)); }
  void v1MembershipTimerIs(Wheel wheel) { setWheel<&Self::v1MembershipTimer_>(std::move(wheel)); }
  void v2MembershipTimerIs(Wheel wheel) { setWheel<&Self::v2MembershipTimer_>(std::move(wheel)); }
  void rexmitTimerIs(Wheel wheel) { setWheel<&Self::rexmitTimer_>(std::move(wheel)); }
  void membershipTimerExpiryIs(Seconds v) { set<&Self::membershipTimerExpiry_>(v); }
  void membershipTimerStateIs(TimerState v) { set<&Self::membershipTimerState_>(v); }
  void v1MembershipTimerStateIs(TimerState v) { set<&Self::v1MembershipTimerState_>(v); }
  void v2MembershipTimerStateIs(TimerState v) { set<&Self::v2MembershipTimerState_>(v); }
  void rexmitTimerExpiryIs(Seconds v) { set<&Self::rexmitTimerExpiry_>(v); }
  void rexmitTimerStateIs(TimerState v) { set<&Self::rexmitTimerState_>(v); }
  void rexmitGroupQueryIs(U32 v) { set<&Self::rexmitGroupQuery_>(v); }
  void rexmitGroupQueryDec(U32 by) { rexmitGroupQueryIs(rexmitGroupQuery_ - by); }
  void initializedIs(bool v) { set<&Self::initialized_>(v); }

  void rexmitSourceIs(IpAddr addr, bool v) { setIs<&Self::rexmitSource>(rexmitSource_, addr, v); }
  void rexmitSourceDel(IpAddr addr) { setDel<&Self::rexmitSource>(rexmitSource_, addr); }
  void rexmitSourceDelAll() { setDelAll<&Self::rexmitSource>(rexmitSource_); }
  void rexmitSourceNotify(IpAddr addr) { notifyMember<&Self::rexmitSource>(addr); }
  void rexmitClrSourceIs(IpAddr addr, bool v) {
    setIs<&Self::rexmitClrSource>(declaredSets().clr, addr, v);
  }
  void rexmitClrSourceDel(IpAddr addr) { setDel<&Self::rexmitClrSource>(declaredSets().clr, addr); }
  void rexmitClrSourceDelAll() { setDelAll<&Self::rexmitClrSource>(declaredSets().clr); }
  void rexmitClrSourceNotify(IpAddr addr) { notifyMember<&Self::rexmitClrSource>(addr); }
  void rexmitSetSourceIs(IpAddr addr, bool v) {
    setIs<&Self::rexmitSetSource>(declaredSets().set, addr, v);
  }
  void rexmitSetSourceDel(IpAddr addr) { setDel<&Self::rexmitSetSource>(declaredSets().set, addr); }
  void rexmitSetSourceDelAll() { setDelAll<&Self::rexmitSetSource>(declaredSets().set); }
  void rexmitSetSourceNotify(IpAddr addr) { notifyMember<&Self::rexmitSetSource>(addr); }

  // The machine of that source, created if absent. Throws a NameInUseError when it exists on
  // another wheel.
  Ptr<QuerierGroupSourceSm> sourceIs(IpAddr addr, const Wheel& wheel);
  // Removes the machine and its status entry; in an INCLUDE group the last one ends the group.
  void sourceDel(IpAddr addr);
  void sourceDelAll();
  // Notifies of that machine without changing anything.
  void sourceNotify(IpAddr addr) { notifyMember<&Self::source_>(addr); }

  // The only way in which handlers start, change or stop a timer: `seconds` from now, +infinity
  // never.
  void doSetTimer(TimerId id, Seconds seconds);

  void handleInitialized();
  void handleMembershipTimer();
  void handleV1MembershipTimer();
  void handleV2MembershipTimer();
  void handleRexmitTimer();
  void handleQuerierVersion();
  void handleRxV1Report();
  void handleRxV2Report();
  void handleRxLeave();
  void handleRxV3Report(const IgmpGroupRecord& record);
  void handleRxGSQuery(const IgmpQuery& query);
  void handleRxGSQuery();
  void handleRxGSSQuery(const IgmpQuery& query);
  void handleSource(IpAddr addr);
  void toRexmitState(IpAddr addr);

  // Called by the owner on removal: from then on nothing is armed or written.
  void end();

  // Of the owner: its interface's name, configuration, status, and whether the attribute log is
  // clogged.
  Mox::Name interfaceName() const;
  const QuerierConfig& config() const;
  QuerierStatus& querierStatus() const;
  bool attrLogClogged() const;

 private:
  using Self = QuerierGroupSm;

  // Only access by name fills these sets, so they get memory at the first change.
  struct DeclaredSets {
    AddrSet clr;
    AddrSet set;
  };
  DeclaredSets& declaredSets();

  // A notifiee may end the group in the middle of a handler. From then on these functions write and
  // arm nothing, as doSetTimer does, and the owner's values read as 0.
  void filterModeIs(IgmpFilterMode v);
  void compatibilityModeIs(IgmpVersion v);
  void lastReporterIs(IpAddr v);
  // Creates the source if absent.
  void sourceTimerIs(IpAddr addr, Seconds seconds);
  Seconds groupMembershipInterval() const;
  Seconds lastMemberQueryTime() const;
  U32 lastMemberQueryCount() const;

  void lowerMembershipTimer(Seconds limit);
  void sendSourceQueries(QuerierSm& querier);
  bool queriesPending() const { return rexmitGroupQuery_ != 0 || !rexmitSource_.empty(); }

  // The record table (RFC 3376 6.4), by filter mode and record type. B are the record's sources
  // without 0.0.0.0, sorted.
  using AddrList = std::span<const IpAddr>;
  bool applyRecord(U8 type, AddrList b);
  void allowSources(AddrList b);
  void includeIsExclude(AddrList b);
  void includeToInclude(AddrList b);
  void includeToExclude(AddrList b);
  void includeBlock(AddrList b);
  void excludeIsExclude(AddrList b);
  void excludeToInclude(AddrList b);
  void excludeToExclude(AddrList b);
  void excludeBlock(AddrList b);
  void excludeAsk(AddrList b);
  void olderHostsToExclude();
  void askSourcesNotIn(AddrList b);
  void deleteSourcesNotIn(AddrList b);
  void closeRecord();

  // The members that a refreshed membership uses come first and side by side: with a million groups
  // each cache line counts.
  IpAddr group_;
  U32 rexmitGroupQuery_ = 0;
  Ptr<QuerierGroupStatus> groupStatus_;
  SourceMap source_;
  AddrSet rexmitSource_;
  Seconds membershipTimerExpiry_ = 0.0;
  TimerState membershipTimerState_ = timerDisabled;
  TimerState v1MembershipTimerState_ = timerDisabled;
  TimerState v2MembershipTimerState_ = timerDisabled;
  TimerState rexmitTimerState_ = timerDisabled;
  // The timers are made in this order.
  Obel::TimerReactor<QuerierGroupSm, &QuerierGroupSm::handleMembershipTimer> membershipTimer_;
  Obel::TimerReactor<QuerierGroupSm, &QuerierGroupSm::handleV1MembershipTimer> v1MembershipTimer_;
  Obel::TimerReactor<QuerierGroupSm, &QuerierGroupSm::handleV2MembershipTimer> v2MembershipTimer_;
  Obel::TimerReactor<QuerierGroupSm, &QuerierGroupSm::handleRexmitTimer> rexmitTimer_;
  Seconds rexmitTimerExpiry_ = 0.0;
  std::unique_ptr<DeclaredSets> declaredSets_;
  bool initialized_ = false;

  friend class Mox::Entity<QuerierGroupSm>;

 public:
  // Names the collection to its members.
  static constexpr auto sourceMember = &QuerierGroupSm::source_;
  static constexpr Mox::AttrTable attributes{
      Mox::Constant{"name", &Self::name},
      Mox::Key{"group", &Self::group_},
      Mox::Part{"groupStatus", &Self::groupStatus_},
      Mox::Timer{"membershipTimer", &Self::membershipTimer_, &Self::membershipTimerIs,
                 &NotifieeConst::onMembershipTimer},
      Mox::Attr{"membershipTimerExpiry", &Self::membershipTimerExpiry_,
                &Self::membershipTimerExpiryIs, &NotifieeConst::onMembershipTimerExpiry,
                Mox::Unit::time},
      Mox::Attr{"membershipTimerState", &Self::membershipTimerState_, &Self::membershipTimerStateIs,
                &NotifieeConst::onMembershipTimerState},
      Mox::Timer{"v1MembershipTimer", &Self::v1MembershipTimer_, &Self::v1MembershipTimerIs,
                 &NotifieeConst::onV1MembershipTimer},
      Mox::Attr{"v1MembershipTimerState", &Self::v1MembershipTimerState_,
                &Self::v1MembershipTimerStateIs, &NotifieeConst::onV1MembershipTimerState},
      Mox::Timer{"v2MembershipTimer", &Self::v2MembershipTimer_, &Self::v2MembershipTimerIs,
                 &NotifieeConst::onV2MembershipTimer},
      Mox::Attr{"v2MembershipTimerState", &Self::v2MembershipTimerState_,
                &Self::v2MembershipTimerStateIs, &NotifieeConst::onV2MembershipTimerState},
      Mox::Timer{"rexmitTimer", &Self::rexmitTimer_, &Self::rexmitTimerIs,
                 &NotifieeConst::onRexmitTimer},
      Mox::Attr{"rexmitTimerExpiry", &Self::rexmitTimerExpiry_, &Self::rexmitTimerExpiryIs,
                &NotifieeConst::onRexmitTimerExpiry, Mox::Unit::time},
      Mox::Attr{"rexmitTimerState", &Self::rexmitTimerState_, &Self::rexmitTimerStateIs,
                &NotifieeConst::onRexmitTimerState},
      Mox::Members{"source", &Self::source_, &NotifieeConst::onSource},
      Mox::Set{"rexmitSource", &Self::rexmitSource, &Self::rexmitSourceIs, &Self::rexmitSourceDel,
               &NotifieeConst::onRexmitSource},
      Mox::Set{"rexmitClrSource", &Self::rexmitClrSource, &Self::rexmitClrSourceIs,
               &Self::rexmitClrSourceDel, &NotifieeConst::onRexmitClrSource},
      Mox::Set{"rexmitSetSource", &Self::rexmitSetSource, &Self::rexmitSetSourceIs,
               &Self::rexmitSetSourceDel, &NotifieeConst::onRexmitSetSource},
      Mox::Attr{"rexmitGroupQuery", &Self::rexmitGroupQuery_, &Self::rexmitGroupQueryIs,
                &NotifieeConst::onRexmitGroupQuery},
      Mox::Attr{"initialized", &Self::initialized_, &Self::initializedIs,
                &NotifieeConst::onInitialized},
      Mox::Owner{"querierSm", &Self::owner, "Gmp::Igmp::QuerierSm"},
  };
};

constexpr const char* enumerationName(QuerierGroupSm::TimerId) {
  return "Gmp::Igmp::QuerierGroupSm::TimerId";
}
constexpr auto enumerators(QuerierGroupSm::TimerId) {
  using Sm = QuerierGroupSm;
  return std::array{Mox::enumerator(Sm::membershipTimerId, "membershipTimerId"),
                    Mox::enumerator(Sm::v1MembershipTimerId, "v1MembershipTimerId"),
                    Mox::enumerator(Sm::v2MembershipTimerId, "v2MembershipTimerId"),
                    Mox::enumerator(Sm::rexmitTimerId, "rexmitTimerId")};
}

// The text of a group machine in a trace, which may be printed after its end.
struct QuerierGroupSmText {
  IpAddr group;
};
inline QuerierGroupSmText tracePart(const QuerierGroupSm& sm) { return {sm.group()}; }
MOX_PUBLIC void appendText(std::string& out, QuerierGroupSmText text);

MOX_PUBLIC Ptr<QuerierGroupSm> QuerierGroupSmIs(IpAddr group, QuerierGroupSm::Wheel membershipWheel,
                                                QuerierGroupSm::Wheel v1Wheel,
                                                QuerierGroupSm::Wheel v2Wheel,
                                                QuerierGroupSm::Wheel rexmitWheel,
                                                QuerierSm* querierSm);

}  // namespace Gmp::Igmp
