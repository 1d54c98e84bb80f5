// What a store of an agent's state says about its copy: the entry storeState in its attribute
// log, before all others. A new agent decides by it whether the copy can be its own state.
#pragma once

#include <string>
#include <utility>

#include <Mox/Entity.h>
#include <MoxBase/Types.h>

namespace Agent {

class StoreState final : public Mox::Entity<StoreState> {
 public:
  static constexpr const char* entityTypeName = "Agent::StoreState";

  class NotifieeConst : public Mox::NotifieeOf<StoreState> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onChange() {}  // one of them has changed
  };

  // Always empty: a store keeps the state of one agent.
  std::string name() const { return {}; }
  // Of the attribute log in which the copy was received.
  Mox::U32 formatVersion() const { return formatVersion_; }
  // The machine that the store runs on, and its boot: times of the activity clock hold within one.
  const std::string& bootId() const { return bootId_; }
  const std::string& machineId() const { return machineId_; }
  // Whether an agent has once sent everything that it had.
  bool complete() const { return complete_; }
  // Absolute time of the end of the last agent; 0 while an agent sends, and before the first one.
  Mox::Seconds lostTime() const { return lostTime_; }
  // The same moment in seconds since 1970 (UTC).
  Mox::Seconds lostWallClock() const { return lostWallClock_; }
  // Of all interfaces, when the last reader connected or when the agent was lost.
  Mox::U64 groups() const { return groups_; }

  void formatVersionIs(Mox::U32 v) { set<&Self::formatVersion_>(v); }
  void bootIdIs(std::string v) { set<&Self::bootId_>(std::move(v)); }
  void machineIdIs(std::string v) { set<&Self::machineId_>(std::move(v)); }
  void completeIs(bool v) { set<&Self::complete_>(v); }
  void lostTimeIs(Mox::Seconds v) { set<&Self::lostTime_>(v); }
  void lostWallClockIs(Mox::Seconds v) { set<&Self::lostWallClock_>(v); }
  void groupsIs(Mox::U64 v) { set<&Self::groups_>(v); }

 private:
  using Self = StoreState;
  Mox::U32 formatVersion_ = 0;
  std::string bootId_;
  std::string machineId_;
  bool complete_ = false;
  Mox::Seconds lostTime_ = 0.0;
  Mox::Seconds lostWallClock_ = 0.0;
  Mox::U64 groups_ = 0;

  friend class Mox::Entity<StoreState>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Constant{"name", &Self::name},
      Mox::Attr{"formatVersion", &Self::formatVersion_, &Self::formatVersionIs,
                &NotifieeConst::onChange},
      Mox::Attr{"bootId", &Self::bootId_, &Self::bootIdIs, &NotifieeConst::onChange},
      Mox::Attr{"machineId", &Self::machineId_, &Self::machineIdIs, &NotifieeConst::onChange},
      Mox::Attr{"complete", &Self::complete_, &Self::completeIs, &NotifieeConst::onChange},
      Mox::Attr{"lostTime", &Self::lostTime_, &Self::lostTimeIs, &NotifieeConst::onChange,
                Mox::Unit::time},
      Mox::Attr{"lostWallClock", &Self::lostWallClock_, &Self::lostWallClockIs,
                &NotifieeConst::onChange},
      Mox::Attr{"groups", &Self::groups_, &Self::groupsIs, &NotifieeConst::onChange},
  };
};

}  // namespace Agent
