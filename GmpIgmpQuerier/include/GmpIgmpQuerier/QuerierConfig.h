// The IGMP querier parameters of one interface, as the operator configured them.
//
// The library only reads them; each setter notifies the querier that watches the entity, and the
// change takes effect at once. Setters accept any value: the writer of the configuration checks the
// ranges.
//
//   Ptr<QuerierConfig> config = querierConfigFactory("vlan10");
//   config->queryIntervalIs(60.0);
#pragma once

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/Entity.h>
#include <Mox/Name.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

class MOX_PUBLIC QuerierConfig final : public Mox::Entity<QuerierConfig> {
 public:
  static constexpr const char* entityTypeName = "Gmp::Igmp::QuerierConfig";
  // Its adapter to the attribute log; see NboAttrLog/EntitySa.h.
  using MoxNboAttrLogSa = Mox::NboAttrLog::EntitySa;

  class MOX_PUBLIC NotifieeConst : public Mox::NotifieeOf<QuerierConfig> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onRobustness() {}
    virtual void onQueryInterval() {}
    virtual void onQueryResponseInterval() {}
    virtual void onStartupQueryInterval() {}
    virtual void onStartupQueryCount() {}
    virtual void onLastMemberQueryInterval() {}
    virtual void onQuerierVersion() {}
    virtual void onLastMemberQueryCount() {}
    virtual void onAddRandomDelayToTimer() {}
    virtual void onSendQuery() {}
  };

  explicit QuerierConfig(Mox::Name name) : name_(name) {}

  // The key: the interface that these parameters are for.
  Mox::Name name() const { return name_; }
  // Robustness Variable, RFC 3376 8.1: expected loss of the link, 1 to 7.
  U32 robustness() const { return robustness_; }
  // Query Interval in seconds, RFC 3376 8.2: the time between general queries.
  Seconds queryInterval() const { return queryInterval_; }
  // Query Response Interval in seconds, RFC 3376 8.3: the time that general queries give hosts to
  // answer; less than the query interval.
  Seconds queryResponseInterval() const { return queryResponseInterval_; }
  // Startup Query Interval in seconds, RFC 3376 8.6; 0 for a quarter of the query interval.
  Seconds startupQueryInterval() const { return startupQueryInterval_; }
  // Startup Query Count, RFC 3376 8.7: how many general queries are sent at that interval.
  U32 startupQueryCount() const { return startupQueryCount_; }
  // Last Member Query Interval in seconds, RFC 3376 8.8: the time between specific queries.
  Seconds lastMemberQueryInterval() const { return lastMemberQueryInterval_; }
  // The IGMP version of the queries that are sent.
  IgmpVersion querierVersion() const { return querierVersion_; }
  // Last Member Query Count, RFC 3376 8.9: how many specific queries are sent after a leave.
  U32 lastMemberQueryCount() const { return lastMemberQueryCount_; }
  // Last Member Query Time in seconds, RFC 3376 8.10: count times interval.
  Seconds lastMemberQueryTime() const { return lastMemberQueryCount_ * lastMemberQueryInterval_; }
  // Whether a random delay is to be added to the query timers. It is stored and replicated, but no
  // timer of this library uses it.
  bool addRandomDelayToTimer() const { return addRandomDelayToTimer_; }
  // Whether this querier may send queries at all.
  bool sendQuery() const { return sendQuery_; }

  void robustnessIs(U32 v) { set<&Self::robustness_>(v); }
  void queryIntervalIs(Seconds v) { set<&Self::queryInterval_>(v); }
  void queryResponseIntervalIs(Seconds v) { set<&Self::queryResponseInterval_>(v); }
  void startupQueryIntervalIs(Seconds v) { set<&Self::startupQueryInterval_>(v); }
  void startupQueryCountIs(U32 v) { set<&Self::startupQueryCount_>(v); }
  void lastMemberQueryIntervalIs(Seconds v) { set<&Self::lastMemberQueryInterval_>(v); }
  void querierVersionIs(IgmpVersion v) { set<&Self::querierVersion_>(v); }
  void lastMemberQueryCountIs(U32 v) { set<&Self::lastMemberQueryCount_>(v); }
  void addRandomDelayToTimerIs(bool v) { set<&Self::addRandomDelayToTimer_>(v); }
  void sendQueryIs(bool v) { set<&Self::sendQuery_>(v); }

 private:
  using Self = QuerierConfig;
  Mox::Name name_;
  U32 robustness_ = 2;
  Seconds queryInterval_ = 125.0;
  Seconds queryResponseInterval_ = 10.0;
  Seconds startupQueryInterval_ = 0.0;
  U32 startupQueryCount_ = 2;
  Seconds lastMemberQueryInterval_ = 1.0;
  IgmpVersion querierVersion_ = igmpVersion2;
  U32 lastMemberQueryCount_ = 2;
  bool addRandomDelayToTimer_ = false;
  bool sendQuery_ = true;

  friend class Mox::Entity<QuerierConfig>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Key{"name", &Self::name_},
      Mox::Attr{"robustness", &Self::robustness_, &Self::robustnessIs,
                &NotifieeConst::onRobustness},
      Mox::Attr{"queryInterval", &Self::queryInterval_, &Self::queryIntervalIs,
                &NotifieeConst::onQueryInterval},
      Mox::Attr{"queryResponseInterval", &Self::queryResponseInterval_,
                &Self::queryResponseIntervalIs, &NotifieeConst::onQueryResponseInterval},
      Mox::Attr{"startupQueryInterval", &Self::startupQueryInterval_, &Self::startupQueryIntervalIs,
                &NotifieeConst::onStartupQueryInterval},
      Mox::Attr{"startupQueryCount", &Self::startupQueryCount_, &Self::startupQueryCountIs,
                &NotifieeConst::onStartupQueryCount},
      Mox::Attr{"lastMemberQueryInterval", &Self::lastMemberQueryInterval_,
                &Self::lastMemberQueryIntervalIs, &NotifieeConst::onLastMemberQueryInterval},
      Mox::Attr{"querierVersion", &Self::querierVersion_, &Self::querierVersionIs,
                &NotifieeConst::onQuerierVersion},
      Mox::Attr{"lastMemberQueryCount", &Self::lastMemberQueryCount_, &Self::lastMemberQueryCountIs,
                &NotifieeConst::onLastMemberQueryCount},
      Mox::Derived{"lastMemberQueryTime", &Self::lastMemberQueryTime},
      Mox::Attr{"addRandomDelayToTimer", &Self::addRandomDelayToTimer_,
                &Self::addRandomDelayToTimerIs, &NotifieeConst::onAddRandomDelayToTimer},
      Mox::Attr{"sendQuery", &Self::sendQuery_, &Self::sendQueryIs, &NotifieeConst::onSendQuery},
  };
};

// A configuration of that name with the default values.
MOX_PUBLIC Ptr<QuerierConfig> querierConfigFactory(Mox::Name name);

}  // namespace Gmp::Igmp
