// What an interface lets in: a flag, a number or a list of prefixes for each rule; and whether it
// lets anything out. The defaults let in what a conforming host or router sends, and as much of it
// as a busy link needs.
//
// Setters take any value; code that takes values from others checks their ranges first
// (Intake/IntakeSettings.h).
#pragma once

#include <Intake/PrefixList.h>
#include <Mox/Entity.h>
#include <Mox/Name.h>
#include <MoxBase/Types.h>

namespace Agent {

class IntakeConfig final : public Mox::Entity<IntakeConfig> {
 public:
  static constexpr const char* entityTypeName = "Agent::IntakeConfig";
  using U32 = Mox::U32;

  class NotifieeConst : public Mox::NotifieeOf<IntakeConfig> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onSetting() {}  // one of them has changed
  };

  explicit IntakeConfig(Mox::Name name) : name_(name) {}

  // The interface.
  Mox::Name name() const { return name_; }
  // The packet and its frame must be sent to multicast addresses: hosts do not see others.
  bool multicastOnly() const { return multicastOnly_; }
  bool refuseFragments() const { return refuseFragments_; }
  // The TTL must be 1, as RFC 3376 4 has it.
  bool ttlOne() const { return ttlOne_; }
  // A query must come from an address of a subnet of the interface, or from 0.0.0.0.
  bool localQueries() const { return localQueries_; }
  // Specific queries are taken from the elected querier only, and for known groups.
  bool guardSpecificQueries() const { return guardSpecificQueries_; }
  // The other querier present interval stays within bounds, whatever times a querier announces.
  bool limitQuerierTimes() const { return limitQuerierTimes_; }
  // A querier that wins the election for the first time is an event.
  bool reportNewQueriers() const { return reportNewQueriers_; }
  // Queries of other routers are refused; empty for all.
  const PrefixList& permittedQueriers() const { return permittedQueriers_; }
  // Reports for other groups are refused; empty for all.
  const PrefixList& acceptedGroups() const { return acceptedGroups_; }
  // A report must come from an address of a subnet of the interface, or from 0.0.0.0.
  bool localReports() const { return localReports_; }
  // A report of version 2 or 3 must carry the Router Alert option.
  bool requireRouterAlert() const { return requireRouterAlert_; }
  // Reports of older versions are refused.
  U32 leastReportVersion() const { return leastReportVersion_; }
  // Groups of 232.0.0.0/8 are taken from reports that name sources to include only (RFC 4604 2.2).
  bool guardSourceSpecific() const { return guardSourceSpecific_; }
  // Limits: groups of the interface, sources of a group and of the interface, records of one group
  // in a packet.
  U32 maxGroups() const { return maxGroups_; }
  U32 maxGroupSources() const { return maxGroupSources_; }
  U32 maxSources() const { return maxSources_; }
  U32 maxGroupRecords() const { return maxGroupRecords_; }
  // Specific queries that reports may cause: a second, and at once.
  U32 maxQueryRate() const { return maxQueryRate_; }
  U32 maxQueryBurst() const { return maxQueryBurst_; }
  // Nothing is transmitted, whatever the querier publishes.
  bool listenOnly() const { return listenOnly_; }

  void multicastOnlyIs(bool v) { set<&Self::multicastOnly_>(v); }
  void refuseFragmentsIs(bool v) { set<&Self::refuseFragments_>(v); }
  void ttlOneIs(bool v) { set<&Self::ttlOne_>(v); }
  void localQueriesIs(bool v) { set<&Self::localQueries_>(v); }
  void guardSpecificQueriesIs(bool v) { set<&Self::guardSpecificQueries_>(v); }
  void limitQuerierTimesIs(bool v) { set<&Self::limitQuerierTimes_>(v); }
  void reportNewQueriersIs(bool v) { set<&Self::reportNewQueriers_>(v); }
  void permittedQueriersIs(PrefixList v) { set<&Self::permittedQueriers_>(std::move(v)); }
  void acceptedGroupsIs(PrefixList v) { set<&Self::acceptedGroups_>(std::move(v)); }
  void localReportsIs(bool v) { set<&Self::localReports_>(v); }
  void requireRouterAlertIs(bool v) { set<&Self::requireRouterAlert_>(v); }
  void leastReportVersionIs(U32 v) { set<&Self::leastReportVersion_>(v); }
  void guardSourceSpecificIs(bool v) { set<&Self::guardSourceSpecific_>(v); }
  void maxGroupsIs(U32 v) { set<&Self::maxGroups_>(v); }
  void maxGroupSourcesIs(U32 v) { set<&Self::maxGroupSources_>(v); }
  void maxSourcesIs(U32 v) { set<&Self::maxSources_>(v); }
  void maxGroupRecordsIs(U32 v) { set<&Self::maxGroupRecords_>(v); }
  void maxQueryRateIs(U32 v) { set<&Self::maxQueryRate_>(v); }
  void maxQueryBurstIs(U32 v) { set<&Self::maxQueryBurst_>(v); }
  void listenOnlyIs(bool v) { set<&Self::listenOnly_>(v); }

 private:
  using Self = IntakeConfig;
  Mox::Name name_;
  bool multicastOnly_ = true;
  bool refuseFragments_ = true;
  bool ttlOne_ = true;
  bool localQueries_ = true;
  bool guardSpecificQueries_ = true;
  bool limitQuerierTimes_ = true;
  bool reportNewQueriers_ = true;
  bool localReports_ = false;
  bool requireRouterAlert_ = false;
  bool guardSourceSpecific_ = false;
  bool listenOnly_ = false;
  U32 leastReportVersion_ = 1;
  U32 maxGroups_ = 65536;
  U32 maxGroupSources_ = 1024;
  U32 maxSources_ = 262144;
  U32 maxGroupRecords_ = 16;
  U32 maxQueryRate_ = 2000;
  U32 maxQueryBurst_ = 20000;
  PrefixList permittedQueriers_;
  PrefixList acceptedGroups_;

  friend class Mox::Entity<IntakeConfig>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Key{"name", &Self::name_},
      Mox::Attr{"multicastOnly", &Self::multicastOnly_, &Self::multicastOnlyIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"refuseFragments", &Self::refuseFragments_, &Self::refuseFragmentsIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"ttlOne", &Self::ttlOne_, &Self::ttlOneIs, &NotifieeConst::onSetting},
      Mox::Attr{"localQueries", &Self::localQueries_, &Self::localQueriesIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"guardSpecificQueries", &Self::guardSpecificQueries_, &Self::guardSpecificQueriesIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"limitQuerierTimes", &Self::limitQuerierTimes_, &Self::limitQuerierTimesIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"reportNewQueriers", &Self::reportNewQueriers_, &Self::reportNewQueriersIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"permittedQueriers", &Self::permittedQueriers_, &Self::permittedQueriersIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"acceptedGroups", &Self::acceptedGroups_, &Self::acceptedGroupsIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"localReports", &Self::localReports_, &Self::localReportsIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"requireRouterAlert", &Self::requireRouterAlert_, &Self::requireRouterAlertIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"leastReportVersion", &Self::leastReportVersion_, &Self::leastReportVersionIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"guardSourceSpecific", &Self::guardSourceSpecific_, &Self::guardSourceSpecificIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"maxGroups", &Self::maxGroups_, &Self::maxGroupsIs, &NotifieeConst::onSetting},
      Mox::Attr{"maxGroupSources", &Self::maxGroupSources_, &Self::maxGroupSourcesIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"maxSources", &Self::maxSources_, &Self::maxSourcesIs, &NotifieeConst::onSetting},
      Mox::Attr{"maxGroupRecords", &Self::maxGroupRecords_, &Self::maxGroupRecordsIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"maxQueryRate", &Self::maxQueryRate_, &Self::maxQueryRateIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"maxQueryBurst", &Self::maxQueryBurst_, &Self::maxQueryBurstIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"listenOnly", &Self::listenOnly_, &Self::listenOnlyIs, &NotifieeConst::onSetting},
  };
};

}  // namespace Agent
