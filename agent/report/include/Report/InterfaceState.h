// State of an interface that is not part of its querier's status. Published beside the status, as
// interface/NAME in the attribute log.
#pragma once

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
  };

  explicit InterfaceState(Mox::Name name) : name_(name) {}

  Mox::Name name() const { return name_; }
  // The querier's own address; 0.0.0.0 before it runs for the first time.
  Ilvo::IpAddr address() const { return address_; }
  // Whether a querier runs. While none does, its status stays as it was.
  bool running() const { return running_; }
  // Absolute time of the last change of the elected querier; 0 while there is none.
  Mox::Seconds electedTime() const { return electedTime_; }

  void addressIs(Ilvo::IpAddr v) { set<&Self::address_>(v); }
  void runningIs(bool v) { set<&Self::running_>(v); }
  void electedTimeIs(Mox::Seconds v) { set<&Self::electedTime_>(v); }

 private:
  using Self = InterfaceState;
  Mox::Name name_;
  Ilvo::IpAddr address_;
  bool running_ = false;
  Mox::Seconds electedTime_ = 0.0;

  friend class Mox::Entity<InterfaceState>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Key{"name", &Self::name_},
      Mox::Attr{"address", &Self::address_, &Self::addressIs, &NotifieeConst::onAddress},
      Mox::Attr{"running", &Self::running_, &Self::runningIs, &NotifieeConst::onRunning},
      Mox::Attr{"electedTime", &Self::electedTime_, &Self::electedTimeIs,
                &NotifieeConst::onElectedTime, Mox::Unit::time},
  };
};

}  // namespace Agent
