// What a packet must pass before the querier of an interface sees it.
//
// By default a sender on the link can do what a conforming router or host could do, and no more.
// Only packets whose checksums and lengths are right are looked into; everything else passes
// unchanged, so that the querier's error counters stay true. Known groups and sources are always
// refreshed: a limit refuses what would make a new group, and cuts new sources. A packet that
// passes costs no allocation, and no lookup while the limits are far. Refusals are counted by rule,
// and an event at most once a minute and rule names the sender. One thread.
//
//   Intake intake(process, config, status, querierStatus, watcher);
//   intake.querierIs(querier);
//   const IntakeVerdict verdict = intake.judge({.packet = packet, .macs = macs});
//   if (!verdict.isRefused) querier->doRxPkt(makePtr<Ilvo::Pkt>(verdict.packet));
//   if (!verdict.rest.empty()) later(verdict.rest);
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <span>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Intake/IntakeConfig.h>
#include <Intake/IntakeProcess.h>
#include <Intake/IntakeRule.h>
#include <Intake/IntakeStatus.h>
#include <Intake/PacketView.h>
#include <Intake/PrefixList.h>
#include <Intake/QueryBudget.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Agent {

struct IntakeEvent {
  IntakeRule rule;
  Ilvo::IpAddr sender;
  std::span<const Mox::U8> mac;  // of the sender; empty where the link has none
  Ilvo::IpAddr group;            // 0.0.0.0 where the rule is about none
  Mox::U64 count;                // of the rule's counter by now
};

class IntakeWatcher {
 public:
  // The event holds until the call returns.
  virtual void onIntakeEvent(const IntakeEvent& event) = 0;

 protected:
  ~IntakeWatcher() = default;
};

struct IntakeVerdict {
  // What the querier is to be given: the bytes of the frame, or a changed copy that is valid until
  // any intake of the process judges the next packet.
  std::span<const Mox::U8> packet;
  // What would keep the packets of other senders waiting, of a report the records: a packet to be
  // judged and handed in like any other once those have been handled, and before those of the same
  // sender. Valid as long; empty for none.
  std::span<const Mox::U8> rest = {};
  // The rule that refused or changed it, of several the first; nothing for an unchanged packet.
  std::optional<IntakeRule> rule = std::nullopt;
  bool isRefused = false;
  // Sources that the querier touches though the packet does not list them: few bytes may ask for
  // many.
  size_t cost = 0;

  bool isChanged() const { return !isRefused && (rule.has_value() || !rest.empty()); }
};

class Intake {
 public:
  // Between these, the other querier present interval of another router may lie (RFC 3376 8.5).
  static constexpr Mox::Seconds leastOtherQuerierInterval = 10.0;
  static constexpr Mox::Seconds mostOtherQuerierInterval = 3600.0;

  Intake(IntakeProcess& process, Mox::Ptr<const IntakeConfig> config, Mox::Ptr<IntakeStatus> status,
         const Mox::Ptr<Gmp::Igmp::QuerierStatus>& querierStatus, IntakeWatcher& watcher);
  ~Intake();
  Intake(const Intake&) = delete;
  Intake& operator=(const Intake&) = delete;

  // The querier that packets are for, on the status that the intake was made with; null while there
  // is none, and everything passes.
  void querierIs(Mox::Ptr<const Gmp::Igmp::QuerierSm> querier) { querier_ = std::move(querier); }
  // The interface's own MAC address, and its subnets with the bits of the address: without subnets,
  // each address counts as local.
  void linkIs(std::span<const Mox::U8> mac, PrefixList subnets);

  // Frames of this querier itself are not to be given.
  IntakeVerdict judge(const ReceivedFrame& frame);

 private:
  class ElectionReactor;
  class RecordPass;

  using GroupStatus = Gmp::Igmp::QuerierGroupStatus;
  using Refusal = std::optional<IntakeRule>;  // the rule that refuses; nothing when all agree

  IntakeVerdict judgeQuery(const PacketView& view);
  IntakeVerdict judgeOldReport(const PacketView& view, unsigned version);
  IntakeVerdict judgeLeave(const PacketView& view, size_t mostCost);
  IntakeVerdict judgeV3Report(const PacketView& view, size_t mostCost);

  Refusal frameRefusal(const PacketView& view) const;
  Refusal queryRefusal(const PacketView& view) const;
  Refusal reportRefusal(const PacketView& view, unsigned version) const;
  Refusal groupRefusal(Ilvo::IpAddr group, bool includesSources) const;
  // For a group that is not known, beside so many others that the same packet makes.
  Refusal newGroupRefusal(Ilvo::IpAddr group, size_t pendingGroups) const;

  static bool isSentToHosts(const PacketView& view);
  bool isTrustedForSpecific(Ilvo::IpAddr querier) const;
  bool winsElection(Ilvo::IpAddr source) const;
  void noteNewQuerier(const PacketView& view);
  bool isFromOwnAddressElsewhere(const PacketView& view) const;
  void noteOwnAddress(const PacketView& view);
  std::optional<IntakeVerdict> limitTimes(const PacketView& view);
  void handleElectedQuerierAddr();

  bool isLocal(Ilvo::IpAddr addr) const;
  // The status entry of a group; null for a group that is not known.
  const GroupStatus* known(Ilvo::IpAddr group) const;
  // Whether this router sends specific queries now.
  bool asks() const;
  // How many queries it takes at most to ask about so many sources once.
  Mox::U64 sourceQueries(Mox::U64 sources) const;
  Mox::U64 lastMemberQueryCount() const;
  // Whether the budget has so many, each retransmitted as configured.
  bool canAsk(Mox::U64 queries);
  // Uses up the budget for queries that are retransmitted as configured; false beyond it.
  bool mayAsk(Mox::U64 queries);

  IntakeVerdict refuse(IntakeRule rule, const PacketView& view, Ilvo::IpAddr group = {});
  // True when an event says so.
  bool count(IntakeRule rule, const PacketView& view, Ilvo::IpAddr group = {}, Mox::U64 by = 1);
  void noteMarks();

  IntakeProcess& process_;
  const Mox::Ptr<const IntakeConfig> config_;
  const Mox::Ptr<IntakeStatus> status_;
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> querierStatus_;
  IntakeWatcher& watcher_;
  Mox::Ptr<const Gmp::Igmp::QuerierSm> querier_;
  std::array<Mox::U8, PacketView::macBytes> mac_{};
  PrefixList subnets_;
  QueryBudget queryBudget_;
  Ilvo::IpAddr elected_;   // as the status says
  Ilvo::IpAddr previous_;  // elected before
  Mox::Seconds handOverTime_ = 0.0;
  // Queriers whose first win was reported, the latest of them.
  std::array<Ilvo::IpAddr, 32> seenQueriers_{};
  size_t seenNext_ = 0;
  std::array<Mox::Seconds, intakeRules.size()> nextEvent_{};
  const std::unique_ptr<ElectionReactor> election_;
};

}  // namespace Agent
