// What each router was given to know of each channel: when a report of a host that wants it was
// last received, and how many answers were lost since then.
//
// An answer is a round: a query and the reports that it causes, or a report of a change. A round
// failed for a router when a query or report of it was lost and none was received.
#pragma once

#include <array>
#include <vector>

#include "Facts.h"

namespace Sim {

class Ledger {
 public:
  struct Entry {
    unsigned lost = 0;     // rounds in a row
    unsigned lostRow = 0;  // the last time that there were any, until an answer ended it
    U32 lostRound = 0;
    U32 evidenceRound = 0;
    Seconds evidence = 0.0;      // the last time
    Seconds servedUntil = 0.0;   // it may be served so long
    Seconds dropped = 0.0;       // the last report without it was received
    Seconds crossed = 0.0;       // a report with it and one without it came so close together that
                                 // another router may have received them in the other order
    Seconds listed = 0.0;        // it was given a timer because one without it names it
    Seconds dropLost = 0.0;      // one without it was lost
    Seconds lastLoss = 0.0;      // of any frame that concerns the channel
    Seconds askedByOther = 0.0;  // a query that lowers its timers was received
    Seconds overtaken = 0.0;     // its timers were lowered again, before the querier had the answer
    bool isIgnored = false;      // the last report was of a version that the router does not take
  };

  explicit Ledger(Facts& facts) : facts_(facts), entries_(facts.routers.size()) {}

  const Entry& entry(const Router& router, unsigned channel) const {
    return entries_[router.node()][channel];
  }
  Entry& entry(const Router& router, unsigned channel) { return entries_[router.node()][channel]; }

  // When a router last asked for the channel in particular, and when in any way.
  Seconds askedSpecifically(unsigned channel) const { return askedSpecifically_[channel]; }
  Seconds asked(unsigned channel) const { return asked_[channel]; }
  // When last in the format of version 2, and when so soon after another time, or with such delays,
  // that a host gives one answer to both.
  Seconds askedInOldFormat(unsigned channel) const { return askedInOldFormat_[channel]; }
  Seconds crowded(unsigned channel) const { return crowded_[channel]; }

  void onSent(const Frame& frame);
  void onLost(const Frame& frame, Node receiver);
  // A query has reached a host that has not answered the one before.
  void onAskedAgain(Mask channels);
  // These hosts' answers were suppressed, or dropped by a change of version.
  void onUnanswered(Mask channels);
  // The state of the router before it handled a frame: the sources that it knew, and what it
  // disregards of the frame.
  struct Before {
    Mask tracked = 0;
    Mask disregarded = 0;
  };
  void onReceived(const Frame& frame, const Router& router, const Before& before);
  // It begins anew with what it serves.
  void onRestart(const Router& router);

  // It may serve these for so long.
  void allow(const Router& router, Mask channels, Seconds interval);

 private:
  bool isOfRoundBefore(const Frame& frame, unsigned channel) const;
  void fail(Node router, unsigned channel, bool isBefore);
  bool isUnderWay(Node receiver, unsigned channel) const;
  void noteOvertaken(Node querier, unsigned channel);
  void noteCrossed(const Frame& frame, const Router& router);
  void onQueryReceived(const Frame& query, const Router& router);

  Facts& facts_;
  std::vector<std::array<Entry, channelsMost>> entries_;
  std::array<U32, channelsMost> round_{};
  std::array<Seconds, channelsMost> askedSpecifically_{};
  std::array<Seconds, channelsMost> asked_{};
  std::array<Seconds, channelsMost> askedInOldFormat_{};
  std::array<Seconds, channelsMost> crowded_{};
};

}  // namespace Sim
