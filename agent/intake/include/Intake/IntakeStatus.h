// What the rules of an interface have refused or changed since its beginning, and how near it came
// to its limits.
//
// A counter has the name of its rule (Intake/IntakeRule.h). It counts packets; for rules about
// records, records; for limits of sources, sources. A high-water mark is as of the last packet that
// was looked at for that limit.
#pragma once

#include <string_view>

#include <Intake/IntakeRule.h>
#include <Mox/Entity.h>
#include <Mox/Name.h>
#include <MoxBase/Types.h>

namespace Agent {

class IntakeStatus final : public Mox::Entity<IntakeStatus> {
 public:
  static constexpr const char* entityTypeName = "Agent::IntakeStatus";
  using U64 = Mox::U64;

  class NotifieeConst : public Mox::NotifieeOf<IntakeStatus> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onCounter() {}  // one of them has changed
    virtual void onMark() {}     // a high-water mark has risen
  };

  explicit IntakeStatus(Mox::Name name) : name_(name) {}

  // The interface.
  Mox::Name name() const { return name_; }
  U64 counted(IntakeRule rule) const;
  // Adds, and gives the new count.
  U64 countedInc(IntakeRule rule, U64 by);

  U64 groupsMost() const { return groupsMost_; }
  U64 sourcesMost() const { return sourcesMost_; }
  // Looked at while the interface has more sources than one group may have.
  U64 groupSourcesMost() const { return groupSourcesMost_; }
  // Of packets with more records than one group may have.
  U64 groupRecordsMost() const { return groupRecordsMost_; }
  // Of the burst of queries that reports may cause, the part that was used up.
  U64 queryBurstMost() const { return queryBurstMost_; }

  void groupsMostIs(U64 v) { raise<&Self::groupsMost_>(v); }
  void sourcesMostIs(U64 v) { raise<&Self::sourcesMost_>(v); }
  void groupSourcesMostIs(U64 v) { raise<&Self::groupSourcesMost_>(v); }
  void groupRecordsMostIs(U64 v) { raise<&Self::groupRecordsMost_>(v); }
  void queryBurstMostIs(U64 v) { raise<&Self::queryBurstMost_>(v); }

 private:
  using Self = IntakeStatus;

  // The counters stand behind the name.
  static constexpr Mox::AttrId idOf(IntakeRule rule) {
    return Mox::entityFirstAttrId + 1 + static_cast<Mox::AttrId>(rule);
  }
  template <auto Member>
  void raise(U64 v) {
    if (v > this->*Member) set<Member>(v);
  }
  template <auto Member>
  void countIs(U64 v) {
    set<Member>(v);
  }
  template <auto Member>
  U64 countInc(U64 by) {
    return inc<Member>(by);
  }
  Mox::Name name_;
  U64 notMulticast_ = 0;
  U64 fragment_ = 0;
  U64 wrongTtl_ = 0;
  U64 foreignQuery_ = 0;
  U64 unpermittedQuerier_ = 0;
  U64 specificQuery_ = 0;
  U64 querierTimes_ = 0;
  U64 newQuerier_ = 0;
  U64 ownAddress_ = 0;
  U64 foreignReport_ = 0;
  U64 noRouterAlert_ = 0;
  U64 oldVersion_ = 0;
  U64 unacceptedGroup_ = 0;
  U64 notSourceSpecific_ = 0;
  U64 groupLimit_ = 0;
  U64 processGroupLimit_ = 0;
  U64 groupSourceLimit_ = 0;
  U64 sourceLimit_ = 0;
  U64 processSourceLimit_ = 0;
  U64 groupRecordLimit_ = 0;
  U64 queryLimit_ = 0;
  U64 groupsMost_ = 0;
  U64 sourcesMost_ = 0;
  U64 groupSourcesMost_ = 0;
  U64 groupRecordsMost_ = 0;
  U64 queryBurstMost_ = 0;

  friend class Mox::Entity<IntakeStatus>;

 public:
  // The counters stand in the order of the rules.
  static constexpr Mox::AttrTable attributes{
      Mox::Key{"name", &Self::name_},
      Mox::Counter{nameOf(IntakeRule::notMulticast).name, &Self::notMulticast_,
                   &Self::countIs<&Self::notMulticast_>, &Self::countInc<&Self::notMulticast_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::fragment).name, &Self::fragment_,
                   &Self::countIs<&Self::fragment_>, &Self::countInc<&Self::fragment_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::wrongTtl).name, &Self::wrongTtl_,
                   &Self::countIs<&Self::wrongTtl_>, &Self::countInc<&Self::wrongTtl_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::foreignQuery).name, &Self::foreignQuery_,
                   &Self::countIs<&Self::foreignQuery_>, &Self::countInc<&Self::foreignQuery_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::unpermittedQuerier).name, &Self::unpermittedQuerier_,
                   &Self::countIs<&Self::unpermittedQuerier_>,
                   &Self::countInc<&Self::unpermittedQuerier_>, &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::specificQuery).name, &Self::specificQuery_,
                   &Self::countIs<&Self::specificQuery_>, &Self::countInc<&Self::specificQuery_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::querierTimes).name, &Self::querierTimes_,
                   &Self::countIs<&Self::querierTimes_>, &Self::countInc<&Self::querierTimes_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::newQuerier).name, &Self::newQuerier_,
                   &Self::countIs<&Self::newQuerier_>, &Self::countInc<&Self::newQuerier_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::ownAddress).name, &Self::ownAddress_,
                   &Self::countIs<&Self::ownAddress_>, &Self::countInc<&Self::ownAddress_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::foreignReport).name, &Self::foreignReport_,
                   &Self::countIs<&Self::foreignReport_>, &Self::countInc<&Self::foreignReport_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::noRouterAlert).name, &Self::noRouterAlert_,
                   &Self::countIs<&Self::noRouterAlert_>, &Self::countInc<&Self::noRouterAlert_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::oldVersion).name, &Self::oldVersion_,
                   &Self::countIs<&Self::oldVersion_>, &Self::countInc<&Self::oldVersion_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::unacceptedGroup).name, &Self::unacceptedGroup_,
                   &Self::countIs<&Self::unacceptedGroup_>,
                   &Self::countInc<&Self::unacceptedGroup_>, &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::notSourceSpecific).name, &Self::notSourceSpecific_,
                   &Self::countIs<&Self::notSourceSpecific_>,
                   &Self::countInc<&Self::notSourceSpecific_>, &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::groupLimit).name, &Self::groupLimit_,
                   &Self::countIs<&Self::groupLimit_>, &Self::countInc<&Self::groupLimit_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::processGroupLimit).name, &Self::processGroupLimit_,
                   &Self::countIs<&Self::processGroupLimit_>,
                   &Self::countInc<&Self::processGroupLimit_>, &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::groupSourceLimit).name, &Self::groupSourceLimit_,
                   &Self::countIs<&Self::groupSourceLimit_>,
                   &Self::countInc<&Self::groupSourceLimit_>, &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::sourceLimit).name, &Self::sourceLimit_,
                   &Self::countIs<&Self::sourceLimit_>, &Self::countInc<&Self::sourceLimit_>,
                   &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::processSourceLimit).name, &Self::processSourceLimit_,
                   &Self::countIs<&Self::processSourceLimit_>,
                   &Self::countInc<&Self::processSourceLimit_>, &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::groupRecordLimit).name, &Self::groupRecordLimit_,
                   &Self::countIs<&Self::groupRecordLimit_>,
                   &Self::countInc<&Self::groupRecordLimit_>, &NotifieeConst::onCounter},
      Mox::Counter{nameOf(IntakeRule::queryLimit).name, &Self::queryLimit_,
                   &Self::countIs<&Self::queryLimit_>, &Self::countInc<&Self::queryLimit_>,
                   &NotifieeConst::onCounter},
      Mox::Attr{"groupsMost", &Self::groupsMost_, &Self::groupsMostIs, &NotifieeConst::onMark},
      Mox::Attr{"sourcesMost", &Self::sourcesMost_, &Self::sourcesMostIs, &NotifieeConst::onMark},
      Mox::Attr{"groupSourcesMost", &Self::groupSourcesMost_, &Self::groupSourcesMostIs,
                &NotifieeConst::onMark},
      Mox::Attr{"groupRecordsMost", &Self::groupRecordsMost_, &Self::groupRecordsMostIs,
                &NotifieeConst::onMark},
      Mox::Attr{"queryBurstMost", &Self::queryBurstMost_, &Self::queryBurstMostIs,
                &NotifieeConst::onMark},
  };
};

inline Mox::U64 IntakeStatus::counted(IntakeRule rule) const {
  U64 count = 0;
  attributes.forEach([&](Mox::AttrId id, const auto& row) {
    if constexpr (requires { row.inc; }) {
      if (id == idOf(rule)) count = this->*row.member;
    }
  });
  return count;
}

inline Mox::U64 IntakeStatus::countedInc(IntakeRule rule, U64 by) {
  U64 count = 0;
  attributes.forEach([&](Mox::AttrId id, const auto& row) {
    if constexpr (requires { row.inc; }) {
      if (id == idOf(rule)) count = (this->*row.inc)(by);
    }
  });
  return count;
}

consteval bool countersAreThoseOfTheRules() {
  std::size_t at = 0;
  bool same = true;
  IntakeStatus::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (requires { row.inc; }) {
      same = same && at < intakeRules.size() && std::string_view(row.name) == intakeRules[at].name;
      ++at;
    }
  });
  return same && at == intakeRules.size();
}
static_assert(countersAreThoseOfTheRules());

}  // namespace Agent
