// A host of version 1, 2 or 3 on the link (RFC 1112 appendix I, RFC 2236 3, RFC 3376 5 and 7.2).
//
// It joins and leaves as the story has it, answers queries after a random delay, is suppressed by
// reports of others where its version has that, sends changes of its state robustness times, and
// follows older queriers. It wants a set of channels of each group. All its delays are on one
// timer: its world calls `act` when `nextDue` has come, and after each other call.
//
//   Host host(random, {.number = 0, .version = 3});
//   host.wantIs(now, 1, wholeGroup);
//   host.receive(now, frame);
//   while (auto frame = host.act(now)) lan.transmit(*frame);
#pragma once

#include <array>
#include <deque>
#include <optional>
#include <utility>

#include "Frame.h"
#include "Random.h"
#include "Wire.h"

namespace Sim {

class Host {
 public:
  // A fault on purpose: it does not answer; it goes on after it has left.
  enum class Fault { none, mute, ghost };
  struct Setup {
    Node number = 0;  // among the hosts
    Node node = 0;
    unsigned version = 3;
    unsigned robustness = 2;  // until a query announces another
    Fault fault = Fault::none;
    U64 seed = 0;
  };
  explicit Host(const Setup& setup)
      : setup_(setup), random_(setup.seed, 1000 + setup.number), robustness_(setup.robustness) {}

  // The channels of a group that it wants from now on, as bits of one group; 0 to leave.
  void wantIs(Seconds now, unsigned group, Mask mask);
  // Forgets everything, without a word.
  void crash();
  void receive(Seconds now, const Frame& frame);

  Seconds nextDue() const;
  // The next frame that is due; nothing when there is none.
  std::optional<Frame> act(Seconds now);

  unsigned version() const { return setup_.version; }
  // The version that it speaks: its own, or that of an older querier.
  unsigned mode(Seconds now) const;
  // The channels that routers must deliver. One that speaks an older version asks for the whole
  // group.
  Mask wants(Seconds now) const;
  // Among these, those that it is about to ask for.
  Mask answering() const;
  // Among these, those that a query for a group or its sources has asked about.
  Mask answeringSpecific() const;
  // Since when it has wanted the channel.
  Seconds wantsSince(unsigned channel, Seconds now) const;
  // Of the answers that were pending, those that it will not send, because another host's report
  // suppressed them or its version has changed.
  Mask takeUnanswered() { return std::exchange(unanswered_, 0); }
  bool isMute(const Frame& frame) const {
    return setup_.fault == Fault::mute && frame.kind == Frame::report && !frame.isUnsolicited;
  }

 private:
  struct Group {
    Mask want = 0;
    std::array<Seconds, channelsOfGroup> since{};  // each of `want` was added
    Seconds joined = 0.0;
    // Version 3: what is still to be repeated of the last changes.
    unsigned modeChanges = 0;
    std::array<unsigned, sourcesMost> sourceChanges{};
    // The delay before an answer, with the sources that were asked about.
    Seconds answer = Mox::never;
    bool answersSources = false;
    Mask askedSources = 0;
    bool isAsked = false;  // in particular, and the answer is pending
    // Versions 1 and 2.
    unsigned unsolicited = 0;  // reports that remain to be sent of a join
    bool isLastReporter = false;
    bool isGhost = false;
  };

  void followQuerier(Seconds now, const Query& query);
  void enterMode(Seconds now);
  void answer(Seconds now, const Query& query);
  void answerOld(Seconds now, const Query& query);
  void answerV3(Seconds now, const Query& query);
  void changeV3(Seconds now, Group& group, Mask former);
  void changeOld(Seconds now, unsigned number, Mask former);
  Frame changeReport(Seconds now);
  std::optional<Frame> actOld(Seconds now);
  std::optional<Frame> actV3(Seconds now);
  Frame v3Frame(Seconds now, const std::deque<Record>& records);
  Frame oldFrame(Seconds now, unsigned number);
  static Mask answerOf(const Group& group);
  static void endAnswer(Group& group);
  static Record currentState(unsigned number, Mask want);

  const Setup setup_;
  Random random_;
  std::array<Group, groupsMost> groups_{};
  Seconds generalAnswer_ = Mox::never;
  Seconds nextChange_ = Mox::never;
  std::deque<unsigned> leaves_;  // groups to leave at once
  unsigned mode_ = 0;            // as of the last event; 0 at first
  Seconds modeSince_ = 0.0;
  Seconds v1QuerierUntil_ = 0.0;
  Seconds v2QuerierUntil_ = 0.0;
  Mask unanswered_ = 0;
  unsigned robustness_;
  Seconds queryInterval_ = 125.0;
};

}  // namespace Sim
