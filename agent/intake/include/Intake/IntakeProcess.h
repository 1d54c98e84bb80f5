// What the intakes of all interfaces share: the limits of the process, and working memory that one
// packet at a time uses.
//
// One object a process, which outlives its intakes. One thread.
#pragma once

#include <Intake/GroupTally.h>
#include <Mox/Entity.h>
#include <Mox/Name.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

#include <vector>

namespace Agent {

// How many groups and sources all interfaces may have together.
class IntakeProcessConfig final : public Mox::Entity<IntakeProcessConfig> {
 public:
  static constexpr const char* entityTypeName = "Agent::IntakeProcessConfig";
  using U32 = Mox::U32;

  class NotifieeConst : public Mox::NotifieeOf<IntakeProcessConfig> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onSetting() {}  // one of them has changed
  };

  // Always empty: there is one in a process.
  std::string name() const { return {}; }
  U32 maxProcessGroups() const { return maxProcessGroups_; }
  U32 maxProcessSources() const { return maxProcessSources_; }
  void maxProcessGroupsIs(U32 v) { set<&Self::maxProcessGroups_>(v); }
  void maxProcessSourcesIs(U32 v) { set<&Self::maxProcessSources_>(v); }

 private:
  using Self = IntakeProcessConfig;
  U32 maxProcessGroups_ = 1048576;
  U32 maxProcessSources_ = 1048576;

  friend class Mox::Entity<IntakeProcessConfig>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Constant{"name", &Self::name},
      Mox::Attr{"maxProcessGroups", &Self::maxProcessGroups_, &Self::maxProcessGroupsIs,
                &NotifieeConst::onSetting},
      Mox::Attr{"maxProcessSources", &Self::maxProcessSources_, &Self::maxProcessSourcesIs,
                &NotifieeConst::onSetting},
  };
};

// How near all interfaces together came to these limits, as of the last packet.
class IntakeProcessStatus final : public Mox::Entity<IntakeProcessStatus> {
 public:
  static constexpr const char* entityTypeName = "Agent::IntakeProcessStatus";
  using U64 = Mox::U64;

  class NotifieeConst : public Mox::NotifieeOf<IntakeProcessStatus> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onMark() {}  // a high-water mark has risen
  };

  // Always empty: there is one in a process.
  std::string name() const { return {}; }
  U64 groupsMost() const { return groupsMost_; }
  U64 sourcesMost() const { return sourcesMost_; }
  void groupsMostIs(U64 v) {
    if (v > groupsMost_) set<&Self::groupsMost_>(v);
  }
  void sourcesMostIs(U64 v) {
    if (v > sourcesMost_) set<&Self::sourcesMost_>(v);
  }

 private:
  using Self = IntakeProcessStatus;
  U64 groupsMost_ = 0;
  U64 sourcesMost_ = 0;

  friend class Mox::Entity<IntakeProcessStatus>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Constant{"name", &Self::name},
      Mox::Attr{"groupsMost", &Self::groupsMost_, &Self::groupsMostIs, &NotifieeConst::onMark},
      Mox::Attr{"sourcesMost", &Self::sourcesMost_, &Self::sourcesMostIs, &NotifieeConst::onMark},
  };
};

struct IntakeProcess {
  const Mox::Ptr<IntakeProcessConfig> config = Mox::makePtr<IntakeProcessConfig>();
  const Mox::Ptr<IntakeProcessStatus> status = Mox::makePtr<IntakeProcessStatus>();
  GroupTally tally = {};
  std::vector<Mox::U8> copy = {};  // of the packet that an intake has changed last
  std::vector<Mox::U8> rest = {};  // that an intake has left last
};

}  // namespace Agent
