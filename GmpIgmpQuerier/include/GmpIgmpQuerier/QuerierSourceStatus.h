// Published state of one source of one group. Its source machine is the only writer.
#pragma once

#include <string>

#include <GmpIgmpQuerier/Types.h>
#include <Mox/Entity.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

class MOX_PUBLIC QuerierSourceStatus final : public Mox::Entity<QuerierSourceStatus> {
 public:
  static constexpr const char* entityTypeName = "Gmp::Igmp::QuerierSourceStatus";
  // Its adapter to the attribute log; see NboAttrLog/EntitySa.h.
  using MoxNboAttrLogSa = Mox::NboAttrLog::EntitySa;

  class MOX_PUBLIC NotifieeConst : public Mox::NotifieeOf<QuerierSourceStatus> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onExpired() {}
    virtual void onCreationTime() {}
    virtual void onExpiryTime() {}
  };

  explicit QuerierSourceStatus(IpAddr sourceAddr) : sourceAddr_(sourceAddr) {}

  // Always empty: a source is known by its key.
  std::string name() const { return {}; }
  // The key: the source's address.
  IpAddr sourceAddr() const { return sourceAddr_; }
  // True while the source timer is not running: in an EXCLUDE group, the source is excluded.
  bool expired() const { return expired_; }
  // Absolute time at which the source was first reported; 0 when not set.
  Seconds creationTime() const { return creationTime_; }
  // Absolute time at which the source timer runs out; +infinity when it does not run.
  Seconds expiryTime() const { return expiryTime_; }

  void expiredIs(bool v) { set<&Self::expired_>(v); }
  void creationTimeIs(Seconds v) { set<&Self::creationTime_>(v); }
  void expiryTimeIs(Seconds v) { set<&Self::expiryTime_>(v); }

  // Called by the group that takes this source in or removes it, which counts it.
  void parentIs(Mox::EntityBase* group, Mox::AttrId attr);

 private:
  using Self = QuerierSourceStatus;
  IpAddr sourceAddr_;
  bool expired_ = false;
  Seconds creationTime_ = 0.0;
  Seconds expiryTime_ = 0.0;

  friend class Mox::Entity<QuerierSourceStatus>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Constant{"name", &Self::name},
      Mox::Key{"sourceAddr", &Self::sourceAddr_},
      Mox::Attr{"expired", &Self::expired_, &Self::expiredIs, &NotifieeConst::onExpired},
      Mox::Attr{"creationTime", &Self::creationTime_, &Self::creationTimeIs,
                &NotifieeConst::onCreationTime, Mox::Unit::time},
      Mox::Attr{"expiryTime", &Self::expiryTime_, &Self::expiryTimeIs, &NotifieeConst::onExpiryTime,
                Mox::Unit::time},
  };
};

}  // namespace Gmp::Igmp
