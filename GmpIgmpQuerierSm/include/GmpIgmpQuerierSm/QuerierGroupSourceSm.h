// Router-side state of one source of one group (RFC 3376 6.2.3): its timer, its pending
// retransmissions, and its published status.
//
// The group machine owns it and decides which sources exist. In an INCLUDE group an expired source
// is removed, and the last one ends the group; in an EXCLUDE group it stays as an excluded source.
#pragma once

#include <string>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/QuerierSourceStatus.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/Entity.h>
#include <MoxBase/Export.h>
#include <Obel/TimerReactor.h>

namespace Gmp::Igmp {

class QuerierGroupSm;

class MOX_PUBLIC QuerierGroupSourceSm final : public Mox::Entity<QuerierGroupSourceSm> {
 public:
  static constexpr const char* entityTypeName = "Gmp::Igmp::QuerierGroupSourceSm";
  using Wheel = Ptr<const Obel::TimerWheel>;

  class MOX_PUBLIC NotifieeConst : public Mox::NotifieeOf<QuerierGroupSourceSm> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onSourceTimer() {}
    virtual void onSourceTimerExpiry() {}
    virtual void onSourceTimerState() {}
    virtual void onRexmits() {}
    virtual void onInitialized() {}
  };

  // Runs at once: finds or creates the status entry, and disables the timer.
  QuerierGroupSourceSm(IpAddr addr, Wheel wheel, QuerierGroupSm* groupSm);

  std::string name() const { return {}; }
  IpAddr addr() const { return addr_; }
  const Ptr<QuerierSourceStatus>& sourceStatus() const { return sourceStatus_; }
  const Wheel& sourceTimer() const { return sourceTimer_.wheel(); }
  // Absolute; +infinity when disabled.
  Seconds sourceTimerExpiry() const { return sourceTimerExpiry_; }
  // Seconds left; +infinity when disabled.
  Seconds sourceTimerRemaining() const;
  TimerState sourceTimerState() const { return sourceTimerState_; }
  // Group-and-source-specific queries still to be sent for this source.
  U32 rexmits() const { return rexmits_; }
  bool initialized() const { return initialized_; }
  // The owner; null once the source has been removed from it.
  QuerierGroupSm* groupSm() const { return groupSm_; }
  // The owner as the parent entity; null after the end.
  Mox::EntityBase* owner() const { return parent(); }
  // It was removed from its group, or the group has ended.
  bool ended() const;

  // Moves the timer to another wheel with its time.
  void sourceTimerIs(Wheel wheel) { setWheel<&Self::sourceTimer_>(std::move(wheel)); }
  void sourceTimerExpiryIs(Seconds v) { set<&Self::sourceTimerExpiry_>(v); }
  void sourceTimerStateIs(TimerState v) { set<&Self::sourceTimerState_>(v); }
  void rexmitsIs(U32 v) { set<&Self::rexmits_>(v); }
  void rexmitsDec(U32 by) { rexmitsIs(rexmits_ - by); }
  void initializedIs(bool v) { set<&Self::initialized_>(v); }

  // Arms the source timer `seconds` from now, or disables it with +infinity, and publishes.
  void doSetTimer(Seconds seconds);
  void handleInitialized();
  void handleSourceTimer();

  // Called by the owner on removal: from then on nothing is armed or written.
  void end();

 private:
  using Self = QuerierGroupSourceSm;

  IpAddr addr_;
  TimerState sourceTimerState_ = timerDisabled;
  Ptr<QuerierSourceStatus> sourceStatus_;
  Obel::TimerReactor<QuerierGroupSourceSm, &QuerierGroupSourceSm::handleSourceTimer> sourceTimer_;
  Seconds sourceTimerExpiry_ = 0.0;
  QuerierGroupSm* groupSm_;
  U32 rexmits_ = 0;
  bool initialized_ = false;

  friend class Mox::Entity<QuerierGroupSourceSm>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Constant{"name", &Self::name},
      Mox::Key{"addr", &Self::addr_},
      Mox::Part{"sourceStatus", &Self::sourceStatus_},
      Mox::Timer{"sourceTimer", &Self::sourceTimer_, &Self::sourceTimerIs,
                 &NotifieeConst::onSourceTimer},
      Mox::Attr{"sourceTimerExpiry", &Self::sourceTimerExpiry_, &Self::sourceTimerExpiryIs,
                &NotifieeConst::onSourceTimerExpiry, Mox::Unit::time},
      Mox::Attr{"sourceTimerState", &Self::sourceTimerState_, &Self::sourceTimerStateIs,
                &NotifieeConst::onSourceTimerState},
      Mox::Attr{"rexmits", &Self::rexmits_, &Self::rexmitsIs, &NotifieeConst::onRexmits},
      Mox::Attr{"initialized", &Self::initialized_, &Self::initializedIs,
                &NotifieeConst::onInitialized},
      Mox::Owner{"groupSm", &Self::owner, "Gmp::Igmp::QuerierGroupSm"},
  };
};

// The text of a source machine in a trace, which may be printed after its end.
struct QuerierGroupSourceSmText {
  IpAddr group;
  IpAddr source;
};
MOX_PUBLIC QuerierGroupSourceSmText tracePart(const QuerierGroupSourceSm& sm);
MOX_PUBLIC void appendText(std::string& out, const QuerierGroupSourceSmText& text);

MOX_PUBLIC Ptr<QuerierGroupSourceSm> QuerierGroupSourceSmIs(IpAddr addr,
                                                            QuerierGroupSourceSm::Wheel wheel,
                                                            QuerierGroupSm* groupSm);

// The machine of that source in the group, created if absent on the wheel of the querier's general
// queries. The handlers create source machines in no other way.
MOX_PUBLIC Ptr<QuerierGroupSourceSm> getOrCreateSourceSm(Ptr<QuerierGroupSm> group, IpAddr addr);

}  // namespace Gmp::Igmp
