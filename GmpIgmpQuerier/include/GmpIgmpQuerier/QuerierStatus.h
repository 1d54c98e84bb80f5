// Published state of one interface's querier: role, effective protocol values, timers, counters,
// and the groups with members. The state machines are the only writers.
//
// The effective values follow the configuration while this router may be querier, and the elected
// querier's announcements while it is not. Absolute times are on the activity clock.
//
//   Ptr<QuerierStatus> status = querierStatusFactory();
#pragma once

#include <string>
#include <string_view>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/QuerierGroupStatus.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/Entity.h>
#include <Mox/OrderedMap.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

class MOX_PUBLIC QuerierStatus final : public Mox::Entity<QuerierStatus> {
 public:
  static constexpr const char* entityTypeName = "Gmp::Igmp::QuerierStatus";
  // Its adapter to the attribute log; see NboAttrLog/EntitySa.h.
  using MoxNboAttrLogSa = Mox::NboAttrLog::EntitySa;
  using GroupMap = Mox::OrderedMap<IpAddr, Ptr<QuerierGroupStatus>>;

  // Role in the querier election, RFC 3376 6.6.2.
  enum QuerierState : U32 {
    querierStateInitial = 0,     // not decided
    querierStateQuerier = 1,     // this router is the querier
    querierStateNonQuerier = 2,  // another router is
  };
  static QuerierState QuerierStateInstance(unsigned number);
  static QuerierState QuerierStateInstance(std::string_view name);

  class MOX_PUBLIC NotifieeConst : public Mox::NotifieeOf<QuerierStatus> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onState() {}
    virtual void onQuerierVersion() {}
    virtual void onGroup(IpAddr) {}  // one member was added or removed
    virtual void onGroupmoxImmediate() {}
    virtual void onGroup() {}  // the collection as a whole
    virtual void onCreationTime() {}
    virtual void onJoins() {}
    virtual void onElectedQuerierAddr() {}
    virtual void onRobustness() {}
    virtual void onQueryInterval() {}
    virtual void onQueryResponseInterval() {}
    virtual void onStartupQueryInterval() {}
    virtual void onGeneralQueryExpiryTime() {}
    virtual void onOtherQuerierExpiryTime() {}
    virtual void onV1QueriesSent() {}
    virtual void onV2QueriesSent() {}
    virtual void onV3QueriesSent() {}
    virtual void onV3GSQueriesSent() {}
    virtual void onV3GSSQueriesSent() {}
    virtual void onV1QueriesReceived() {}
    virtual void onV2QueriesReceived() {}
    virtual void onV3QueriesReceived() {}
    virtual void onV1ReportReceived() {}
    virtual void onV2ReportReceived() {}
    virtual void onV2LeaveReceived() {}
    virtual void onV3ReportReceived() {}
    virtual void onErrorPacketReceived() {}
    virtual void onOtherPacketReceived() {}
    virtual void onMcastBoundaryPktReceived() {}
  };

  QuerierStatus();
  ~QuerierStatus() override;

  // Always empty: a status is found through its owner.
  std::string name() const { return {}; }
  QuerierState state() const { return state_; }
  // The version in effect; igmpVersionUnknown until a querier runs.
  IgmpVersion querierVersion() const { return querierVersion_; }
  // The groups with members, in address order.
  const GroupMap& group() const { return group_; }
  // The group of that address, or null.
  Ptr<QuerierGroupStatus> group(IpAddr addr) const { return member<&Self::group_>(addr); }
  // How many sources all groups have together, without a walk.
  size_t sources() const { return sources_; }
  // Absolute time of this entity's construction.
  Seconds creationTime() const { return creationTime_; }
  // Groups created since then.
  U64 joins() const { return joins_; }
  // The querier of the link; 0.0.0.0 while none is known.
  IpAddr electedQuerierAddr() const { return electedQuerierAddr_; }
  // Effective Robustness Variable, Query Interval, Query Response Interval and Startup Query
  // Interval (RFC 3376 8.1 to 8.3, 8.6), intervals in seconds.
  U32 robustness() const { return robustness_; }
  Seconds queryInterval() const { return queryInterval_; }
  Seconds queryResponseInterval() const { return queryResponseInterval_; }
  Seconds startupQueryInterval() const { return startupQueryInterval_; }
  // Group Membership Interval in seconds, RFC 3376 8.4.
  Seconds groupMembershipInterval() const {
    return robustness_ * queryInterval_ + queryResponseInterval_;
  }
  // Other Querier Present Interval in seconds, RFC 3376 8.5.
  Seconds otherQuerierPresentInterval() const {
    return robustness_ * queryInterval_ + 0.5 * queryResponseInterval_;
  }
  // Older Host Present Interval in seconds, RFC 3376 8.13.
  Seconds olderHostPresentInterval() const {
    return robustness_ * queryInterval_ + queryResponseInterval_;
  }
  // Absolute time of the next general query; +infinity when none is due.
  Seconds generalQueryExpiryTime() const { return generalQueryExpiryTime_; }
  // Absolute time at which the elected querier counts as gone; +infinity when none is watched.
  Seconds otherQuerierExpiryTime() const { return otherQuerierExpiryTime_; }
  // Version 1 queries sent, specific ones included.
  U32 v1QueriesSent() const { return v1QueriesSent_; }
  // Version 2 queries sent, specific ones included.
  U32 v2QueriesSent() const { return v2QueriesSent_; }
  // Version 3 general and group-specific queries sent.
  U32 v3QueriesSent() const { return v3QueriesSent_; }
  // Group-specific queries sent to version 3 groups.
  U32 v3GSQueriesSent() const { return v3GSQueriesSent_; }
  // Group-and-source-specific queries sent, one for each packet.
  U32 v3GSSQueriesSent() const { return v3GSSQueriesSent_; }
  // Version 1, 2 and 3 queries sent, as a sum that wraps.
  U32 totalGeneralQueriesSent() const { return v1QueriesSent_ + v2QueriesSent_ + v3QueriesSent_; }
  // Queries received, by version; those inside the multicast boundary included.
  U32 v1QueriesReceived() const { return v1QueriesReceived_; }
  U32 v2QueriesReceived() const { return v2QueriesReceived_; }
  U32 v3QueriesReceived() const { return v3QueriesReceived_; }
  // Reports and leaves received and acted on.
  U32 v1ReportReceived() const { return v1ReportReceived_; }
  U32 v2ReportReceived() const { return v2ReportReceived_; }
  U32 v2LeaveReceived() const { return v2LeaveReceived_; }
  U32 v3ReportReceived() const { return v3ReportReceived_; }
  // Damaged packets received and dropped.
  U32 errorPacketReceived() const { return errorPacketReceived_; }
  // Packets received that are not IGMP or of a type that a querier does not act on.
  U32 otherPacketReceived() const { return otherPacketReceived_; }
  // Queries, reports and records received for groups inside the multicast boundary.
  U32 mcastBoundaryPktReceived() const { return mcastBoundaryPktReceived_; }

  void stateIs(QuerierState v) { set<&Self::state_>(v); }
  void querierVersionIs(IgmpVersion v) { set<&Self::querierVersion_>(v); }
  void creationTimeIs(Seconds v) { set<&Self::creationTime_>(v); }
  void electedQuerierAddrIs(IpAddr v) { set<&Self::electedQuerierAddr_>(v); }
  void robustnessIs(U32 v) { set<&Self::robustness_>(v); }
  void queryIntervalIs(Seconds v) { set<&Self::queryInterval_>(v); }
  void queryResponseIntervalIs(Seconds v) { set<&Self::queryResponseInterval_>(v); }
  void startupQueryIntervalIs(Seconds v) { set<&Self::startupQueryInterval_>(v); }
  void generalQueryExpiryTimeIs(Seconds v) { set<&Self::generalQueryExpiryTime_>(v); }
  void otherQuerierExpiryTimeIs(Seconds v) { set<&Self::otherQuerierExpiryTime_>(v); }

  // The group of that address, made and notified if it is not there.
  Ptr<QuerierGroupStatus> groupIs(IpAddr addr) { return memberIs<&Self::group_>(addr); }
  // Removes and notifies; null, without a notification, when it is not there.
  Ptr<QuerierGroupStatus> groupDel(IpAddr addr) { return memberDel<&Self::group_>(addr); }
  Ptr<QuerierGroupStatus> groupDel(const GroupMap::Iterator& at) { return groupDel(at.key()); }
  // Removes every group in address order, notifying each.
  void groupDelAll();
  // Notifies that key without changing anything.
  void groupNotify(IpAddr addr) { notifyMember<&Self::group_>(addr); }
  // Notifies the collection as a whole.
  void groupNotify() { notifyCollection<&Self::group_>(); }

  // Counters: Is sets, Inc adds with wraparound and returns the new value.
  void joinsIs(U64 v) { set<&Self::joins_>(v); }
  U64 joinsInc(U64 by) { return inc<&Self::joins_>(by); }
  void v1QueriesSentIs(U32 v) { set<&Self::v1QueriesSent_>(v); }
  U32 v1QueriesSentInc(U32 by) { return inc<&Self::v1QueriesSent_>(by); }
  void v2QueriesSentIs(U32 v) { set<&Self::v2QueriesSent_>(v); }
  U32 v2QueriesSentInc(U32 by) { return inc<&Self::v2QueriesSent_>(by); }
  void v3QueriesSentIs(U32 v) { set<&Self::v3QueriesSent_>(v); }
  U32 v3QueriesSentInc(U32 by) { return inc<&Self::v3QueriesSent_>(by); }
  void v3GSQueriesSentIs(U32 v) { set<&Self::v3GSQueriesSent_>(v); }
  U32 v3GSQueriesSentInc(U32 by) { return inc<&Self::v3GSQueriesSent_>(by); }
  void v3GSSQueriesSentIs(U32 v) { set<&Self::v3GSSQueriesSent_>(v); }
  U32 v3GSSQueriesSentInc(U32 by) { return inc<&Self::v3GSSQueriesSent_>(by); }
  void v1QueriesReceivedIs(U32 v) { set<&Self::v1QueriesReceived_>(v); }
  U32 v1QueriesReceivedInc(U32 by) { return inc<&Self::v1QueriesReceived_>(by); }
  void v2QueriesReceivedIs(U32 v) { set<&Self::v2QueriesReceived_>(v); }
  U32 v2QueriesReceivedInc(U32 by) { return inc<&Self::v2QueriesReceived_>(by); }
  void v3QueriesReceivedIs(U32 v) { set<&Self::v3QueriesReceived_>(v); }
  U32 v3QueriesReceivedInc(U32 by) { return inc<&Self::v3QueriesReceived_>(by); }
  void v1ReportReceivedIs(U32 v) { set<&Self::v1ReportReceived_>(v); }
  U32 v1ReportReceivedInc(U32 by) { return inc<&Self::v1ReportReceived_>(by); }
  void v2ReportReceivedIs(U32 v) { set<&Self::v2ReportReceived_>(v); }
  U32 v2ReportReceivedInc(U32 by) { return inc<&Self::v2ReportReceived_>(by); }
  void v2LeaveReceivedIs(U32 v) { set<&Self::v2LeaveReceived_>(v); }
  U32 v2LeaveReceivedInc(U32 by) { return inc<&Self::v2LeaveReceived_>(by); }
  void v3ReportReceivedIs(U32 v) { set<&Self::v3ReportReceived_>(v); }
  U32 v3ReportReceivedInc(U32 by) { return inc<&Self::v3ReportReceived_>(by); }
  void errorPacketReceivedIs(U32 v) { set<&Self::errorPacketReceived_>(v); }
  U32 errorPacketReceivedInc(U32 by) { return inc<&Self::errorPacketReceived_>(by); }
  void otherPacketReceivedIs(U32 v) { set<&Self::otherPacketReceived_>(v); }
  U32 otherPacketReceivedInc(U32 by) { return inc<&Self::otherPacketReceived_>(by); }
  void mcastBoundaryPktReceivedIs(U32 v) { set<&Self::mcastBoundaryPktReceived_>(v); }
  U32 mcastBoundaryPktReceivedInc(U32 by) { return inc<&Self::mcastBoundaryPktReceived_>(by); }

 private:
  using Self = QuerierStatus;
  QuerierState state_ = querierStateInitial;
  IgmpVersion querierVersion_ = igmpVersionUnknown;
  GroupMap group_;
  size_t sources_ = 0;
  Seconds creationTime_;
  U64 joins_ = 0;
  IpAddr electedQuerierAddr_;
  U32 robustness_ = 2;
  Seconds queryInterval_ = 125.0;
  Seconds queryResponseInterval_ = 10.0;
  Seconds startupQueryInterval_ = 31.25;
  Seconds generalQueryExpiryTime_ = 0.0;
  Seconds otherQuerierExpiryTime_ = 0.0;
  U32 v1QueriesSent_ = 0;
  U32 v2QueriesSent_ = 0;
  U32 v3QueriesSent_ = 0;
  U32 v3GSQueriesSent_ = 0;
  U32 v3GSSQueriesSent_ = 0;
  U32 v1QueriesReceived_ = 0;
  U32 v2QueriesReceived_ = 0;
  U32 v3QueriesReceived_ = 0;
  U32 v1ReportReceived_ = 0;
  U32 v2ReportReceived_ = 0;
  U32 v2LeaveReceived_ = 0;
  U32 v3ReportReceived_ = 0;
  U32 errorPacketReceived_ = 0;
  U32 otherPacketReceived_ = 0;
  U32 mcastBoundaryPktReceived_ = 0;

  friend class Mox::Entity<QuerierStatus>;
  // Members count themselves, whether they are added by name or by a typed call.
  friend class QuerierGroupStatus;
  friend class QuerierSourceStatus;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Constant{"name", &Self::name},
      Mox::Attr{"state", &Self::state_, &Self::stateIs, &NotifieeConst::onState},
      Mox::Attr{"querierVersion", &Self::querierVersion_, &Self::querierVersionIs,
                &NotifieeConst::onQuerierVersion},
      Mox::Collection{"group", &Self::group_, &NotifieeConst::onGroup,
                      &NotifieeConst::onGroupmoxImmediate, &NotifieeConst::onGroup},
      Mox::Attr{"creationTime", &Self::creationTime_, &Self::creationTimeIs,
                &NotifieeConst::onCreationTime, Mox::Unit::time},
      Mox::Counter{"joins", &Self::joins_, &Self::joinsIs, &Self::joinsInc,
                   &NotifieeConst::onJoins},
      Mox::Attr{"electedQuerierAddr", &Self::electedQuerierAddr_, &Self::electedQuerierAddrIs,
                &NotifieeConst::onElectedQuerierAddr},
      Mox::Attr{"robustness", &Self::robustness_, &Self::robustnessIs,
                &NotifieeConst::onRobustness},
      Mox::Attr{"queryInterval", &Self::queryInterval_, &Self::queryIntervalIs,
                &NotifieeConst::onQueryInterval},
      Mox::Attr{"queryResponseInterval", &Self::queryResponseInterval_,
                &Self::queryResponseIntervalIs, &NotifieeConst::onQueryResponseInterval},
      Mox::Attr{"startupQueryInterval", &Self::startupQueryInterval_, &Self::startupQueryIntervalIs,
                &NotifieeConst::onStartupQueryInterval},
      Mox::Derived{"groupMembershipInterval", &Self::groupMembershipInterval},
      Mox::Derived{"otherQuerierPresentInterval", &Self::otherQuerierPresentInterval},
      Mox::Derived{"olderHostPresentInterval", &Self::olderHostPresentInterval},
      Mox::Attr{"generalQueryExpiryTime", &Self::generalQueryExpiryTime_,
                &Self::generalQueryExpiryTimeIs, &NotifieeConst::onGeneralQueryExpiryTime,
                Mox::Unit::time},
      Mox::Attr{"otherQuerierExpiryTime", &Self::otherQuerierExpiryTime_,
                &Self::otherQuerierExpiryTimeIs, &NotifieeConst::onOtherQuerierExpiryTime,
                Mox::Unit::time},
      Mox::Counter{"v1QueriesSent", &Self::v1QueriesSent_, &Self::v1QueriesSentIs,
                   &Self::v1QueriesSentInc, &NotifieeConst::onV1QueriesSent},
      Mox::Counter{"v2QueriesSent", &Self::v2QueriesSent_, &Self::v2QueriesSentIs,
                   &Self::v2QueriesSentInc, &NotifieeConst::onV2QueriesSent},
      Mox::Counter{"v3QueriesSent", &Self::v3QueriesSent_, &Self::v3QueriesSentIs,
                   &Self::v3QueriesSentInc, &NotifieeConst::onV3QueriesSent},
      Mox::Counter{"v3GSQueriesSent", &Self::v3GSQueriesSent_, &Self::v3GSQueriesSentIs,
                   &Self::v3GSQueriesSentInc, &NotifieeConst::onV3GSQueriesSent},
      Mox::Counter{"v3GSSQueriesSent", &Self::v3GSSQueriesSent_, &Self::v3GSSQueriesSentIs,
                   &Self::v3GSSQueriesSentInc, &NotifieeConst::onV3GSSQueriesSent},
      Mox::Derived{"totalGeneralQueriesSent", &Self::totalGeneralQueriesSent},
      Mox::Counter{"v1QueriesReceived", &Self::v1QueriesReceived_, &Self::v1QueriesReceivedIs,
                   &Self::v1QueriesReceivedInc, &NotifieeConst::onV1QueriesReceived},
      Mox::Counter{"v2QueriesReceived", &Self::v2QueriesReceived_, &Self::v2QueriesReceivedIs,
                   &Self::v2QueriesReceivedInc, &NotifieeConst::onV2QueriesReceived},
      Mox::Counter{"v3QueriesReceived", &Self::v3QueriesReceived_, &Self::v3QueriesReceivedIs,
                   &Self::v3QueriesReceivedInc, &NotifieeConst::onV3QueriesReceived},
      Mox::Counter{"v1ReportReceived", &Self::v1ReportReceived_, &Self::v1ReportReceivedIs,
                   &Self::v1ReportReceivedInc, &NotifieeConst::onV1ReportReceived},
      Mox::Counter{"v2ReportReceived", &Self::v2ReportReceived_, &Self::v2ReportReceivedIs,
                   &Self::v2ReportReceivedInc, &NotifieeConst::onV2ReportReceived},
      Mox::Counter{"v2LeaveReceived", &Self::v2LeaveReceived_, &Self::v2LeaveReceivedIs,
                   &Self::v2LeaveReceivedInc, &NotifieeConst::onV2LeaveReceived},
      Mox::Counter{"v3ReportReceived", &Self::v3ReportReceived_, &Self::v3ReportReceivedIs,
                   &Self::v3ReportReceivedInc, &NotifieeConst::onV3ReportReceived},
      Mox::Counter{"errorPacketReceived", &Self::errorPacketReceived_, &Self::errorPacketReceivedIs,
                   &Self::errorPacketReceivedInc, &NotifieeConst::onErrorPacketReceived},
      Mox::Counter{"otherPacketReceived", &Self::otherPacketReceived_, &Self::otherPacketReceivedIs,
                   &Self::otherPacketReceivedInc, &NotifieeConst::onOtherPacketReceived},
      Mox::Counter{"mcastBoundaryPktReceived", &Self::mcastBoundaryPktReceived_,
                   &Self::mcastBoundaryPktReceivedIs, &Self::mcastBoundaryPktReceivedInc,
                   &NotifieeConst::onMcastBoundaryPktReceived},
  };
};

constexpr const char* enumerationName(QuerierStatus::QuerierState) {
  return "Gmp::Igmp::QuerierStatus::QuerierState";
}
constexpr auto enumerators(QuerierStatus::QuerierState) {
  using Status = QuerierStatus;
  return std::array{Mox::enumerator(Status::querierStateInitial, "querierStateInitial"),
                    Mox::enumerator(Status::querierStateQuerier, "querierStateQuerier"),
                    Mox::enumerator(Status::querierStateNonQuerier, "querierStateNonQuerier")};
}

// How many groups and sources the statuses of this process hold together, without a walk.
struct MembershipCount {
  size_t groups = 0;
  size_t sources = 0;
};
MOX_PUBLIC const MembershipCount& membershipInProcess();

// A status in its initial state, created now.
MOX_PUBLIC Ptr<QuerierStatus> querierStatusFactory();

}  // namespace Gmp::Igmp
