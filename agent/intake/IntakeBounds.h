// For tests: what holds whatever is sent to an intake with a querier behind it. Never more groups
// and sources than the limits allow, never many more bytes sent than received, and not much to
// notify of for a packet.
//
//   bounds.receives(message.size());  // for each packet of a block
//   querier->doRxPkt(...);
//   bounds.handled();
//   for (const std::string& breach : bounds.breaches()) fail(breach);
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Intake/Intake.h>
#include <Mox/Entity.h>

namespace Agent {

class IntakeBounds final : private Mox::TreeNotifiee {
 public:
  IntakeBounds(Mox::Ptr<const IntakeConfig> config, Mox::Ptr<const IntakeProcessConfig> process,
               Mox::Ptr<const Gmp::Igmp::QuerierConfig> querierConfig,
               Mox::Ptr<const Gmp::Igmp::QuerierStatus> status)
      : config_(std::move(config)),
        process_(std::move(process)),
        querierConfig_(std::move(querierConfig)),
        status_(std::move(status)) {
    status_->treeNotifieeAdd(this);
  }
  ~IntakeBounds() override { status_->treeNotifieeRemove(this); }
  IntakeBounds(const IntakeBounds&) = delete;
  IntakeBounds& operator=(const IntakeBounds&) = delete;

  void begin() {
    receivedBytes_ = allowedForSources_ = sentBytes_ = notifiedOfPacket_ = 0;
    isHandled_ = true;
  }
  // An IGMP message, before it is handed in.
  void receives(size_t messageBytes) {
    const size_t words = messageBytes / 4;
    receivedBytes_ += messageBytes;
    allowedForSources_ += 4 * querierConfig_->lastMemberQueryCount() * (status_->sources() + words);
    // Each record can touch all sources of its group, those of the packet among them.
    if (std::exchange(isHandled_, false)) mayNotify_ = notified_ = 0;
    mayNotify_ += 64 + 8 * (words + config_->maxGroupRecords() * (status_->sources() + words));
  }
  // Only specific queries: general ones are sent by the clock, whatever is received.
  void sends(Ilvo::IpAddr group, size_t messageBytes) {
    if (!group.isZero()) sentBytes_ += messageBytes;
  }
  // The packets were handled; what timers notify of has no such bound.
  void handled() {
    notifiedOfPacket_ = isHandled_ ? 0 : notified_;
    isHandled_ = true;
  }
  size_t sentBytes() const { return sentBytes_; }

  std::vector<std::string> breaches() const {
    std::vector<std::string> all;
    const auto most = [&](const char* what, size_t count, size_t limit) {
      if (count <= limit) return;
      all.push_back(std::to_string(count) + " " + what + ", at most " + std::to_string(limit));
    };
    most("groups", status_->group().size(), config_->maxGroups());
    most("sources", status_->sources(), config_->maxSources());
    const Gmp::Igmp::MembershipCount& inProcess = Gmp::Igmp::membershipInProcess();
    most("groups of the process", inProcess.groups, process_->maxProcessGroups());
    most("sources of the process", inProcess.sources, process_->maxProcessSources());
    size_t sources = 0;
    for (auto at = status_->group().begin(); at != status_->group().end(); ++at) {
      most("sources of a group", (*at)->source().size(), config_->maxGroupSources());
      sources += (*at)->source().size();
    }
    if (sources != status_->sources()) all.emplace_back("the sources are not counted as they are");
    most("bytes sent", sentBytes_, 10 * receivedBytes_ + allowedForSources_);
    most("notifications of a packet", notifiedOfPacket_, mayNotify_);
    most("seconds of silence", static_cast<size_t>(status_->otherQuerierPresentInterval()),
         static_cast<size_t>(Intake::mostOtherQuerierInterval));
    return all;
  }

 private:
  void onAttr(const Mox::EntityBase&, Mox::AttrId) override { ++notified_; }
  void onMember(const Mox::EntityBase&, Mox::AttrId, Mox::U32) override { ++notified_; }
  void onCollection(const Mox::EntityBase&, Mox::AttrId) override { ++notified_; }

  const Mox::Ptr<const IntakeConfig> config_;
  const Mox::Ptr<const IntakeProcessConfig> process_;
  const Mox::Ptr<const Gmp::Igmp::QuerierConfig> querierConfig_;
  const Mox::Ptr<const Gmp::Igmp::QuerierStatus> status_;
  size_t receivedBytes_ = 0;
  size_t allowedForSources_ = 0;
  size_t sentBytes_ = 0;
  size_t notified_ = 0;
  size_t notifiedOfPacket_ = 0;
  size_t mayNotify_ = 0;
  bool isHandled_ = true;
};

}  // namespace Agent
