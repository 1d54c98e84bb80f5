// The state of an interface that its querier does not know, published beside the querier's status:
// interface/NAME in the attribute log. Its counters are of packets that no querier saw, since the
// agent was started.
#pragma once

#include <string>
#include <utility>

#include <Ilvo/IpAddr.h>
#include <Mox/Entity.h>
#include <Mox/Name.h>
#include <MoxBase/Types.h>

namespace Agent {

class InterfaceState final : public Mox::Entity<InterfaceState> {
 public:
  static constexpr const char* entityTypeName = "Agent::InterfaceState";

  class NotifieeConst : public Mox::NotifieeOf<InterfaceState> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onAddress() {}
    virtual void onRunning() {}
    virtual void onElectedTime() {}
    virtual void onFramesLost() {}
    virtual void onFramesUnparsable() {}
    virtual void onFragmentsReceived() {}
    virtual void onOtherVlanFrames() {}
    virtual void onSendFailures() {}
    virtual void onQueriesLost() {}
    virtual void onDeferredLost() {}
    virtual void onIndex() {}
    virtual void onMac() {}
    virtual void onTakenOverTime() {}
    virtual void onTakenOverGroups() {}
    virtual void onRoleChanges() {}
  };

  explicit InterfaceState(Mox::Name name) : name_(name) {}

  Mox::Name name() const { return name_; }
  // The querier's own address; 0.0.0.0 before it runs for the first time.
  Ilvo::IpAddr address() const { return address_; }
  // Whether a querier runs. While none does, its status stays as it was.
  bool running() const { return running_; }
  // Absolute time of the last change of the elected querier; 0 while there is none.
  Mox::Seconds electedTime() const { return electedTime_; }
  // Frames with IGMP that came faster than they were read.
  Mox::U64 framesLost() const { return framesLost_; }
  // Frames without a whole IPv4 packet.
  Mox::U64 framesUnparsable() const { return framesUnparsable_; }
  // Parts of IPv4 packets; IGMP messages are not reassembled.
  Mox::U64 fragmentsReceived() const { return fragmentsReceived_; }
  // Frames that are tagged for a VLAN, which is another link.
  Mox::U64 otherVlanFrames() const { return otherVlanFrames_; }
  // Attempts to send a query that failed.
  Mox::U64 sendFailures() const { return sendFailures_; }
  // Queries that were given up after several attempts, because too many others waited, or because
  // the interface went down or got another address while they waited.
  Mox::U64 queriesLost() const { return queriesLost_; }
  // Packets that had to wait, since what their senders ask for costs too much at once, and that
  // found no room.
  Mox::U64 deferredLost() const { return deferredLost_; }
  // By both the kernel's interface is known again: its index, and its address of the link, as text.
  // 0 and empty before there is one.
  Mox::U32 index() const { return index_; }
  const std::string& mac() const { return mac_; }
  // When this agent took over the state of one before it, and the groups that it had; 0 for none.
  Mox::Seconds takenOverTime() const { return takenOverTime_; }
  Mox::U64 takenOverGroups() const { return takenOverGroups_; }
  // Times that the querier has won or lost an election, or began anew.
  Mox::U64 roleChanges() const { return roleChanges_; }

  void addressIs(Ilvo::IpAddr v) { set<&Self::address_>(v); }
  void runningIs(bool v) { set<&Self::running_>(v); }
  void electedTimeIs(Mox::Seconds v) { set<&Self::electedTime_>(v); }
  void framesLostIs(Mox::U64 v) { set<&Self::framesLost_>(v); }
  Mox::U64 framesLostInc(Mox::U64 by) { return inc<&Self::framesLost_>(by); }
  void framesUnparsableIs(Mox::U64 v) { set<&Self::framesUnparsable_>(v); }
  Mox::U64 framesUnparsableInc(Mox::U64 by) { return inc<&Self::framesUnparsable_>(by); }
  void fragmentsReceivedIs(Mox::U64 v) { set<&Self::fragmentsReceived_>(v); }
  Mox::U64 fragmentsReceivedInc(Mox::U64 by) { return inc<&Self::fragmentsReceived_>(by); }
  void otherVlanFramesIs(Mox::U64 v) { set<&Self::otherVlanFrames_>(v); }
  Mox::U64 otherVlanFramesInc(Mox::U64 by) { return inc<&Self::otherVlanFrames_>(by); }
  void sendFailuresIs(Mox::U64 v) { set<&Self::sendFailures_>(v); }
  Mox::U64 sendFailuresInc(Mox::U64 by) { return inc<&Self::sendFailures_>(by); }
  void queriesLostIs(Mox::U64 v) { set<&Self::queriesLost_>(v); }
  Mox::U64 queriesLostInc(Mox::U64 by) { return inc<&Self::queriesLost_>(by); }
  void deferredLostIs(Mox::U64 v) { set<&Self::deferredLost_>(v); }
  Mox::U64 deferredLostInc(Mox::U64 by) { return inc<&Self::deferredLost_>(by); }
  void indexIs(Mox::U32 v) { set<&Self::index_>(v); }
  void macIs(std::string v) { set<&Self::mac_>(std::move(v)); }
  void takenOverTimeIs(Mox::Seconds v) { set<&Self::takenOverTime_>(v); }
  void takenOverGroupsIs(Mox::U64 v) { set<&Self::takenOverGroups_>(v); }
  void roleChangesIs(Mox::U64 v) { set<&Self::roleChanges_>(v); }
  Mox::U64 roleChangesInc(Mox::U64 by) { return inc<&Self::roleChanges_>(by); }

 private:
  using Self = InterfaceState;
  Mox::Name name_;
  Ilvo::IpAddr address_;
  bool running_ = false;
  Mox::Seconds electedTime_ = 0.0;
  Mox::U64 framesLost_ = 0;
  Mox::U64 framesUnparsable_ = 0;
  Mox::U64 fragmentsReceived_ = 0;
  Mox::U64 otherVlanFrames_ = 0;
  Mox::U64 sendFailures_ = 0;
  Mox::U64 queriesLost_ = 0;
  Mox::U64 deferredLost_ = 0;
  Mox::U32 index_ = 0;
  std::string mac_;
  Mox::Seconds takenOverTime_ = 0.0;
  Mox::U64 takenOverGroups_ = 0;
  Mox::U64 roleChanges_ = 0;

  friend class Mox::Entity<InterfaceState>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Key{"name", &Self::name_},
      Mox::Attr{"address", &Self::address_, &Self::addressIs, &NotifieeConst::onAddress},
      Mox::Attr{"running", &Self::running_, &Self::runningIs, &NotifieeConst::onRunning},
      Mox::Attr{"electedTime", &Self::electedTime_, &Self::electedTimeIs,
                &NotifieeConst::onElectedTime, Mox::Unit::time},
      Mox::Counter{"framesLost", &Self::framesLost_, &Self::framesLostIs, &Self::framesLostInc,
                   &NotifieeConst::onFramesLost},
      Mox::Counter{"framesUnparsable", &Self::framesUnparsable_, &Self::framesUnparsableIs,
                   &Self::framesUnparsableInc, &NotifieeConst::onFramesUnparsable},
      Mox::Counter{"fragmentsReceived", &Self::fragmentsReceived_, &Self::fragmentsReceivedIs,
                   &Self::fragmentsReceivedInc, &NotifieeConst::onFragmentsReceived},
      Mox::Counter{"otherVlanFrames", &Self::otherVlanFrames_, &Self::otherVlanFramesIs,
                   &Self::otherVlanFramesInc, &NotifieeConst::onOtherVlanFrames},
      Mox::Counter{"sendFailures", &Self::sendFailures_, &Self::sendFailuresIs,
                   &Self::sendFailuresInc, &NotifieeConst::onSendFailures},
      Mox::Counter{"queriesLost", &Self::queriesLost_, &Self::queriesLostIs, &Self::queriesLostInc,
                   &NotifieeConst::onQueriesLost},
      Mox::Counter{"deferredLost", &Self::deferredLost_, &Self::deferredLostIs,
                   &Self::deferredLostInc, &NotifieeConst::onDeferredLost},
      Mox::Attr{"index", &Self::index_, &Self::indexIs, &NotifieeConst::onIndex},
      Mox::Attr{"mac", &Self::mac_, &Self::macIs, &NotifieeConst::onMac},
      Mox::Attr{"takenOverTime", &Self::takenOverTime_, &Self::takenOverTimeIs,
                &NotifieeConst::onTakenOverTime, Mox::Unit::time},
      Mox::Attr{"takenOverGroups", &Self::takenOverGroups_, &Self::takenOverGroupsIs,
                &NotifieeConst::onTakenOverGroups},
      Mox::Counter{"roleChanges", &Self::roleChanges_, &Self::roleChangesIs, &Self::roleChangesInc,
                   &NotifieeConst::onRoleChanges},
  };
};

}  // namespace Agent
