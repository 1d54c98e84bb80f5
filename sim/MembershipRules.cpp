#include "MembershipRules.h"

#include <bit>

namespace Sim {

namespace {

// A querier that was switched off goes on by its own times, although another asks now.
bool followsItself(const Router& router) {
  return !router.isQuerier() && (router.settings().sendQuery == 0 ||
                                 router.status().electedQuerierAddr() == router.address());
}

}  // namespace

void MembershipRules::onStep(const Router& router) {
  if (!router.isRunning()) return;
  const Mask now = router.served();
  Seen& seen = seen_[router.node()];
  const Mask forgotten = std::exchange(seen.served, now) & ~now;
  if (forgotten != 0) {
    forEachChannel(forgotten & facts_.wanted(),
                   [&](unsigned channel) { judgeForgotten(router, channel); });
    scheduleFollowChecks(router, forgotten);
  }
  seen.oldModes = router.oldModeSources();
  checkGone(router, now);
}

void MembershipRules::onRestart(const Router& router) {
  seen_[router.node()] = {};
  if (router.isRunning()) seen_[router.node()].served = router.served();
}

void MembershipRules::onReceived(const Frame& frame, const Router& router,
                                 const Ledger::Before& before) {
  if (router.settings().version < frame.version) return;
  const Mask missing = frame.wanted & ~before.disregarded & ~router.served();
  if (missing == 0) return;
  facts_.breach(Invariant::membersKept,
                facts_.nameOf(router) + " does not serve " +
                    channelText(static_cast<unsigned>(std::countr_zero(missing))) +
                    ", which a report has just asked for");
}

// An answer that is under way comes too late for a timer that has fired now.
bool MembershipRules::isLate(const Router& router, unsigned channel) const {
  const Mask bit = 1U << channel;
  for (const Host& host : facts_.hosts) {
    if ((host.answering() & host.wants(Mox::now()) & bit) != 0) return true;
  }
  return std::ranges::any_of(facts_.queue.events(), [&](const Event& event) {
    if (event.kind != Event::delivery) return false;
    const Frame& frame = facts_.lan->frame(event.subject);
    return (event.node == router.node() && (frame.wanted & bit) != 0) ||
           (event.node >= facts_.routers.size() && (frame.asks & bit) != 0);
  });
}

const Router* MembershipRules::querierOf() const {
  for (const auto& each : facts_.routers) {
    if (each->isQuerier()) return each.get();
  }
  return nullptr;
}

bool MembershipRules::isMemberSince(unsigned channel, Seconds time) const {
  return std::ranges::any_of(
      facts_.hosts, [&](const Host& host) { return host.wantsSince(channel, Mox::now()) <= time; });
}

void MembershipRules::judgeForgotten(const Router& router, unsigned channel) {
  const Ledger::Entry& entry = ledger_.entry(router, channel);
  // A host that has joined since is not known yet.
  if (!isMemberSince(channel, entry.evidence)) return;
  const bool isSteady = facts_.isWhole() && entry.evidence > facts_.disturbed + facts_.settleTime();
  const double needed =
      std::min(isSteady ? facts_.bounds.leastRobustness() : 1, facts_.bounds.leastRobustness());
  if (entry.lost < needed) {
    if (const auto rule = knownReason(router, channel)) return facts_.known(*rule);
  }
  const unsigned lost = std::max(entry.lost, lostWithQuerier(router, channel));
  const bool isUnasked = !isSteady && ledger_.asked(channel) <= entry.evidence;
  if (isUnasked || lost + (isLate(router, channel) ? 1 : 0) >= needed) {
    ++facts_.findings.counts.excused;
    return;
  }
  facts_.breach(Invariant::membersKept, facts_.nameOf(router) + " forgets " + channelText(channel) +
                                            " with a member and " + std::to_string(entry.lost) +
                                            " answers lost in a row");
}

// What the querier asks about, a router that had the answer forgets with it: answers that only the
// querier lost count, too.
unsigned MembershipRules::lostWithQuerier(const Router& router, unsigned channel) const {
  const Ledger::Entry& own = ledger_.entry(router, channel);
  const Router* querier = querierOf();
  if (querier == nullptr || ledger_.askedSpecifically(channel) < own.evidence) return 0;
  const Ledger::Entry& other = ledger_.entry(*querier, channel);
  const bool isSince = other.lastLoss >= own.dropped - facts_.lan->longestDelay();
  const unsigned before = isSince ? std::max(other.lostRow, 1U) : 0;
  return std::max(other.lost, own.lost + before);
}

bool MembershipRules::hasVersionOneMember(unsigned channel) const {
  return std::ranges::any_of(facts_.hosts, [&](const Host& host) {
    return host.version() == 1 && (host.wants(Mox::now()) >> channel & 1U) != 0;
  });
}

std::optional<Known> MembershipRules::knownReason(const Router& router, unsigned channel) const {
  const Ledger::Entry& entry = ledger_.entry(router, channel);
  if (entry.isIgnored) return Known::olderReports;
  if (facts_.wasSilenced && (ledger_.asked(channel) <= entry.evidence || followsItself(router))) {
    return Known::queryingOff;
  }
  if (ledger_.askedSpecifically(channel) >= entry.evidence && hasVersionOneMember(channel)) {
    return Known::versionOneNotAsked;
  }
  if (isActedOnAlone(router, channel)) return Known::leaveActedOnAlone;
  if (!router.isQuerier() && ledger_.askedInOldFormat(channel) >= entry.evidence) {
    return Known::repeatedOldQuery;
  }
  if (isOvertaken(router, entry)) return Known::overtakenQuery;
  if (isCrowded(router, channel)) return Known::crowdedQueries;
  if ((seen_[router.node()].oldModes >> channel & 1U) != 0) return Known::oldModeSources;
  if (!facts_.haveEqualTimes()) return Known::differentSettings;
  return {};
}

// The timer that has fired is the one that the query lowered.
bool MembershipRules::isOvertaken(const Router& router, const Ledger::Entry& entry) const {
  return !router.isQuerier() && entry.overtaken >= entry.evidence &&
         Mox::now() <= entry.overtaken + longestLastMemberTime();
}

// An answer to two queries at once was lost or is late, and the timer that has fired is the one
// that they are about, or that the last query of their row has lowered again: they are a round
// fewer than the robustness covers.
bool MembershipRules::isCrowded(const Router& router, unsigned channel) const {
  const Ledger::Entry& entry = ledger_.entry(router, channel);
  const Seconds crowded = ledger_.crowded(channel);
  const Seconds since = std::min(entry.evidence, entry.dropped - 2 * facts_.lan->longestDelay());
  return (crowded >= since || isAskedAgainSince(router, channel, crowded)) &&
         Mox::now() <= crowded + 2 * longestLastMemberTime() &&
         (std::max(entry.lost, lostWithQuerier(router, channel)) != 0 || isLate(router, channel));
}

// This router received an answer that the querier lost, and the next query lowered its timer again.
bool MembershipRules::isAskedAgainSince(const Router& router, unsigned channel,
                                        Seconds time) const {
  const Router* querier = querierOf();
  if (router.isQuerier() || querier == nullptr) return false;
  const Seconds loss = ledger_.entry(*querier, channel).lastLoss;
  return loss >= time && loss <= ledger_.entry(router, channel).askedByOther;
}

// It lowers its timers on a leave; the querier did not receive it, or received an answer after it,
// and asks nobody.
bool MembershipRules::isActedOnAlone(const Router& router, unsigned channel) const {
  const Ledger::Entry& entry = ledger_.entry(router, channel);
  if (router.isQuerier() || entry.dropped < entry.evidence) return false;
  if (ledger_.askedSpecifically(channel) <= entry.dropped) return true;
  const Router* querier = querierOf();
  if (querier == nullptr) return false;
  const Ledger::Entry& known = ledger_.entry(*querier, channel);
  return known.dropLost >= entry.evidence - facts_.lan->longestDelay() ||
         known.evidence >= known.dropped;
}

// The querier asks about a source that this router excludes: the query starts its timer. This
// router may have become the querier since.
bool MembershipRules::isAskedAfterExclusion(const Router& router, unsigned channel) const {
  return channel % channelsOfGroup != sourcesMost &&
         Mox::now() <= ledger_.entry(router, channel).askedByOther + longestLastMemberTime();
}

// Of the querier, and of a router that takes it from the robustness in a query.
Seconds MembershipRules::longestLastMemberTime() const {
  const Settings& most = facts_.bounds.most();
  return std::max(most.robustness, most.lastMemberQueryCount) * most.lastMemberQueryInterval +
         2 * facts_.lan->longestDelay() + rounding;
}

void MembershipRules::checkGone(const Router& router, Mask served) {
  forEachChannel(served, [&](unsigned channel) {
    const Ledger::Entry& entry = ledger_.entry(router, channel);
    if (Mox::now() <= entry.servedUntil + rounding) return;
    if (isAskedAfterExclusion(router, channel)) return facts_.known(Known::excludedSourceAsked);
    facts_.breach(Invariant::goneInTime, facts_.nameOf(router) + " serves " + channelText(channel) +
                                             ", which nobody has asked for since " +
                                             std::to_string(entry.evidence - Facts::begin));
  });
}

void MembershipRules::scheduleFollowChecks(const Router& querier, Mask forgotten) {
  if (!querier.isQuerier() || !facts_.isWhole()) return;
  forEachChannel(forgotten, [&](unsigned channel) {
    seen_[querier.node()].forgotten[channel] = Mox::now();
    facts_.queue.push({.time = Mox::now() + longestLastMemberTime(),
                       .kind = Event::followCheck,
                       .subject = channel,
                       .node = querier.node()});
  });
}

// Each of the two received what the other did, in the same order.
bool MembershipRules::isSameCourse(const Router& router, const Router& querier,
                                   unsigned channel) const {
  const Ledger::Entry& own = ledger_.entry(router, channel);
  const Ledger::Entry& other = ledger_.entry(querier, channel);
  const Seconds since = Mox::now() - 2 * facts_.bounds.groupMembershipInterval();
  const auto isCrossed = [](const Ledger::Entry& entry) { return entry.crossed >= entry.evidence; };
  return own.lastLoss <= since && other.lastLoss <= since && !isCrossed(own) && !isCrossed(other) &&
         own.evidence <= other.evidence + facts_.lan->longestDelay() &&
         own.listed <= own.evidence &&
         (own.evidence > own.dropped) == (other.evidence > other.dropped);
}

void MembershipRules::checkFollows(unsigned channel, Node querier) {
  const Router& elected = *facts_.routers[querier];
  // It may have served the channel again since.
  if (Mox::now() < seen_[querier].forgotten[channel] + longestLastMemberTime()) return;
  if (!elected.isQuerier() || !facts_.isWhole() || !facts_.haveEqualTimes()) return;
  if (((elected.served() | facts_.wanted()) >> channel & 1U) != 0) return;
  for (const auto& each : facts_.routers) {
    if (!each->isRunning() || each->isQuerier()) continue;
    if ((each->served() >> channel & 1U) == 0 || !isSameCourse(*each, elected, channel)) continue;
    // A querier that was switched off and on keeps the times that it had adopted in between.
    if (followsItself(*each) || (facts_.wasSilenced && each->groupMembershipInterval() !=
                                                           elected.groupMembershipInterval())) {
      facts_.known(Known::queryingOff);
      continue;
    }
    facts_.breach(Invariant::followsQuerier, facts_.nameOf(*each) + " still serves " +
                                                 channelText(channel) +
                                                 ", which the querier has forgotten");
  }
}

void MembershipRules::checkAllServed() {
  const Mask wanted = facts_.wanted();
  for (const auto& each : facts_.routers) {
    if (!each->isRunning()) continue;
    forEachChannel(wanted & ~each->served(), [&](unsigned channel) {
      if (ledger_.entry(*each, channel).isIgnored) return facts_.known(Known::olderReports);
      if (facts_.wasSilenced &&
          (ledger_.asked(channel) <= facts_.disturbed || followsItself(*each))) {
        return facts_.known(Known::queryingOff);
      }
      if (isLate(*each, channel) ||
          ledger_.entry(*each, channel).lost >= facts_.bounds.leastRobustness()) {
        return;
      }
      facts_.breach(Invariant::membersKept, facts_.nameOf(*each) + " does not serve " +
                                                channelText(channel) + " at the end");
    });
  }
}

}  // namespace Sim
