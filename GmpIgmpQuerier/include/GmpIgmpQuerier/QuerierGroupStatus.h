// Published state of one group on one interface. Its group machine is the only writer.
//
// A removed group keeps its sources until it is destroyed, which removes them one by one.
#pragma once

#include <string>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/QuerierSourceStatus.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/Entity.h>
#include <Mox/HashMap.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

class MOX_PUBLIC QuerierGroupStatus final : public Mox::Entity<QuerierGroupStatus> {
 public:
  static constexpr const char* entityTypeName = "Gmp::Igmp::QuerierGroupStatus";
  // Its adapter to the attribute log; see NboAttrLog/EntitySa.h.
  using MoxNboAttrLogSa = Mox::NboAttrLog::EntitySa;
  using SourceMap = Mox::HashMap<IpAddr, Ptr<QuerierSourceStatus>>;

  class MOX_PUBLIC NotifieeConst : public Mox::NotifieeOf<QuerierGroupStatus> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onFilterMode() {}
    virtual void onSource(IpAddr) {}  // one member was added or removed
    virtual void onSourcemoxImmediate() {}
    virtual void onSource() {}  // the collection as a whole
    virtual void onCompatibilityMode() {}
    virtual void onCreationTime() {}
    virtual void onExpiryTime() {}
    virtual void onLastReporter() {}
  };

  explicit QuerierGroupStatus(IpAddr groupAddr) : groupAddr_(groupAddr) {}
  ~QuerierGroupStatus() override;

  // Always empty: a group is known by its key.
  std::string name() const { return {}; }
  // The key: the group's address.
  IpAddr groupAddr() const { return groupAddr_; }
  // RFC 3376 6.2.1; a new group starts in include.
  IgmpFilterMode filterMode() const { return filterMode_; }
  // The sources, in no particular order.
  const SourceMap& source() const { return source_; }
  // The source of that address, or null.
  Ptr<QuerierSourceStatus> source(IpAddr addr) const { return member<&Self::source_>(addr); }
  // Version of the oldest host that is present, RFC 3376 7.3.2.
  IgmpVersion compatibilityMode() const { return compatibilityMode_; }
  // Absolute time at which the group was first reported; 0 when not set.
  Seconds creationTime() const { return creationTime_; }
  // Absolute time at which the group timer runs out; +infinity when it does not run.
  Seconds expiryTime() const { return expiryTime_; }
  // Sender of the last report; 0.0.0.0 for none.
  IpAddr lastReporter() const { return lastReporter_; }

  void filterModeIs(IgmpFilterMode v) { set<&Self::filterMode_>(v); }
  void compatibilityModeIs(IgmpVersion v) { set<&Self::compatibilityMode_>(v); }
  void creationTimeIs(Seconds v) { set<&Self::creationTime_>(v); }
  void expiryTimeIs(Seconds v) { set<&Self::expiryTime_>(v); }
  void lastReporterIs(IpAddr v) { set<&Self::lastReporter_>(v); }

  // The source of that address, made and notified if it is not there.
  Ptr<QuerierSourceStatus> sourceIs(IpAddr addr) { return memberIs<&Self::source_>(addr); }
  // Removes and notifies; null, without a notification, when it is not there.
  Ptr<QuerierSourceStatus> sourceDel(IpAddr addr) { return memberDel<&Self::source_>(addr); }
  Ptr<QuerierSourceStatus> sourceDel(SourceMap::const_iterator at) { return sourceDel((*at).key); }
  // Removes every source, notifying each.
  void sourceDelAll();
  // Notifies that key without changing anything.
  void sourceNotify(IpAddr addr) { notifyMember<&Self::source_>(addr); }
  // Notifies the collection as a whole.
  void sourceNotify() { notifyCollection<&Self::source_>(); }

  // Called by the status that takes this group in or removes it, which counts it with its sources.
  void parentIs(Mox::EntityBase* status, Mox::AttrId attr);

 private:
  using Self = QuerierGroupStatus;
  IpAddr groupAddr_;
  IgmpFilterMode filterMode_ = filterModeInclude;
  IgmpVersion compatibilityMode_ = igmpVersion3;
  IpAddr lastReporter_;
  SourceMap source_;
  Seconds creationTime_ = 0.0;
  Seconds expiryTime_ = 0.0;

  friend class Mox::Entity<QuerierGroupStatus>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Constant{"name", &Self::name},
      Mox::Key{"groupAddr", &Self::groupAddr_},
      Mox::Attr{"filterMode", &Self::filterMode_, &Self::filterModeIs,
                &NotifieeConst::onFilterMode},
      Mox::Collection{"source", &Self::source_, &NotifieeConst::onSource,
                      &NotifieeConst::onSourcemoxImmediate, &NotifieeConst::onSource},
      Mox::Attr{"compatibilityMode", &Self::compatibilityMode_, &Self::compatibilityModeIs,
                &NotifieeConst::onCompatibilityMode},
      Mox::Attr{"creationTime", &Self::creationTime_, &Self::creationTimeIs,
                &NotifieeConst::onCreationTime, Mox::Unit::time},
      Mox::Attr{"expiryTime", &Self::expiryTime_, &Self::expiryTimeIs, &NotifieeConst::onExpiryTime,
                Mox::Unit::time},
      Mox::Attr{"lastReporter", &Self::lastReporter_, &Self::lastReporterIs,
                &NotifieeConst::onLastReporter},
  };
};

}  // namespace Gmp::Igmp
