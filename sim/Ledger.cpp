#include "Ledger.h"

#include <algorithm>
#include <utility>

namespace Sim {

void Ledger::onSent(const Frame& frame) {
  const Mask channels = frame.isQuery() ? frame.asks : frame.isUnsolicited ? frame.asserts : 0;
  forEachChannel(channels, [&](unsigned channel) { ++round_[channel]; });
  forEachChannel(frame.asks, [&](unsigned channel) {
    asked_[channel] = frame.sent;
    if (frame.kind != Frame::specificQuery) return;
    const Seconds last = std::exchange(askedSpecifically_[channel], frame.sent);
    if (frame.sent - last < facts_.bounds.most().lastMemberQueryInterval - 1e-6) {
      crowded_[channel] = frame.sent;
    }
    if (frame.version < 3) askedInOldFormat_[channel] = frame.sent;
    if (!frame.suppresses) noteOvertaken(frame.sender, channel);
  });
}

bool Ledger::isUnderWay(Node receiver, unsigned channel) const {
  return std::ranges::any_of(facts_.queue.events(), [&](const Event& event) {
    return event.kind == Event::delivery && event.node == receiver &&
           (facts_.lan->frame(event.subject).wanted >> channel & 1U) != 0;
  });
}

// Routers that have an answer which is still on its way to the querier lower their timers for
// nothing.
void Ledger::noteOvertaken(Node querier, unsigned channel) {
  if (!isUnderWay(querier, channel)) return;
  const Seconds evidence = entries_[querier][channel].evidence;
  for (auto& entries : entries_) {
    if (entries[channel].evidence > evidence) entries[channel].overtaken = Mox::now();
  }
}

// A host sends some answers before the next query reaches it: they are of the round before.
bool Ledger::isOfRoundBefore(const Frame& frame, unsigned channel) const {
  return !frame.isQuery() && !frame.isUnsolicited &&
         frame.sent < asked_[channel] + facts_.lan->longestDelay();
}

void Ledger::fail(Node router, unsigned channel, bool isBefore) {
  Entry& entry = entries_[router][channel];
  U32 round = round_[channel];
  const U32 known = std::max(entry.lostRound, entry.evidenceRound);
  if (isBefore && known + 1 < round) --round;
  if (round == entry.lostRound || round == entry.evidenceRound) return;
  entry.lostRound = round;
  ++entry.lost;
}

void Ledger::onLost(const Frame& frame, Node receiver) {
  const size_t routers = facts_.routers.size();
  if (receiver < routers) {
    forEachChannel(frame.wanted, [&](unsigned channel) {
      fail(receiver, channel, isOfRoundBefore(frame, channel));
    });
    forEachChannel(frame.asserts | frame.drops | frame.asks,
                   [&](unsigned channel) { entries_[receiver][channel].lastLoss = Mox::now(); });
    forEachChannel(frame.drops,
                   [&](unsigned channel) { entries_[receiver][channel].dropLost = Mox::now(); });
  } else if (frame.isQuery()) {
    onUnanswered(frame.asks & facts_.hosts[receiver - routers].wants(Mox::now()));
  }
}

void Ledger::onAskedAgain(Mask channels) {
  forEachChannel(channels, [&](unsigned channel) { crowded_[channel] = Mox::now(); });
}

void Ledger::onUnanswered(Mask channels) {
  for (Node router = 0; router < facts_.routers.size(); ++router) {
    forEachChannel(channels, [&](unsigned channel) { fail(router, channel, false); });
  }
}

void Ledger::onReceived(const Frame& frame, const Router& router, const Before& before) {
  if (frame.isQuery()) return onQueryReceived(frame, router);
  const bool ignored = router.settings().version < frame.version;
  noteCrossed(frame, router);
  const Mask wanted = frame.wanted & ~before.disregarded;
  forEachChannel(wanted, [&](unsigned channel) {
    Entry& at = entry(router, channel);
    at.isIgnored = ignored;
    if (ignored) return;
    if (at.lost != 0) at.lostRow = std::exchange(at.lost, 0);
    at.evidenceRound = round_[channel];
    at.evidence = Mox::now();
  });
  if (ignored) return;
  forEachChannel(frame.drops,
                 [&](unsigned channel) { entry(router, channel).dropped = Mox::now(); });
  allow(router, wanted, router.groupMembershipInterval());
  // A source that an EXCLUDE group has not kept so far gets a timer when it is named (RFC 3376
  // 6.4.1 and 6.4.2).
  const Mask listed = frame.drops & ~before.tracked & ~inEachGroup(rest);
  forEachChannel(listed, [&](unsigned channel) { entry(router, channel).listed = Mox::now(); });
  allow(router, listed, router.groupMembershipInterval());
}

void Ledger::noteCrossed(const Frame& frame, const Router& router) {
  const Seconds since = Mox::now() - 2 * facts_.lan->longestDelay();
  const auto note = [&](Mask channels, Seconds Entry::*other) {
    forEachChannel(channels, [&](unsigned channel) {
      Entry& at = entry(router, channel);
      if (at.*other >= since) at.crossed = Mox::now();
    });
  };
  note(frame.wanted, &Entry::dropped);
  note(frame.drops, &Entry::evidence);
}

void Ledger::onQueryReceived(const Frame& query, const Router& router) {
  if (query.kind != Frame::specificQuery || query.suppresses) return;
  forEachChannel(query.asks, [&](unsigned channel) {
    Entry& at = entry(router, channel);
    at.askedByOther = Mox::now();
    if (at.evidence >= query.sent) at.overtaken = Mox::now();
  });
}

void Ledger::allow(const Router& router, Mask channels, Seconds interval) {
  const Seconds until = Mox::now() + interval;
  forEachChannel(channels, [&](unsigned channel) {
    Entry& at = entry(router, channel);
    at.servedUntil = std::max(at.servedUntil, until);
  });
}

void Ledger::onRestart(const Router& router) {
  for (Entry& each : entries_[router.node()]) {
    each = {.evidence = Mox::now(), .lastLoss = each.lastLoss};
  }
  if (router.isRunning()) allow(router, router.served(), router.groupMembershipInterval());
}

}  // namespace Sim
