// What the event loop does, for operators: `igmpq get loop`.
//
// A gap is the time between two moments at which the loop can take packets from the rings: from
// the end of one reading of them to the begin of the next, or until the loop sleeps since there is
// nothing to do. It is wall-clock time, so system calls that wait and other programs on this
// processor count. What comes between a sleep and the next reading counts with its time of the
// processor alone, as the loop does not know when it woke. The opening of ports at the start is
// left out.
//
//   state->ringsReadBegins();
//   rings.readReady();
//   state->ringsReadEnds();
//   ...
//   state->sleepBegins();
#pragma once

#include <algorithm>

#include <Mox/AttrTable.h>
#include <Mox/TypeInfo.h>
#include <MoxBase/Types.h>

namespace Agent {

class LoopState final : public Mox::ObjectOf<LoopState> {
 public:
  static constexpr const char* entityTypeName = "Agent::LoopState";

  Mox::U64 batches() const { return batches_; }
  Mox::Seconds longestGap() const { return longestGap_; }

  void ringsReadBegins();
  void ringsReadEnds();
  void sleepBegins();
  // What the loop does now is no gap: it opens its ports at the start.
  void gapDel() { gapBegin_ = Mox::never; }

 private:
  using Self = LoopState;

  void gapEnds();

  Mox::U64 batches_ = 0;
  Mox::Seconds longestGap_ = 0.0;
  bool hasSlept_ = false;
  // Since when the gap lasts: on the activity clock, or on that of this thread's processor time
  // where the loop has slept.
  Mox::Seconds gapBegin_ = Mox::never;

 public:
  static constexpr auto attributes = Mox::attrTableFrom<130>(
      Mox::Part{"batches", &Self::batches_}, Mox::Part{"longestGap", &Self::longestGap_});
};

}  // namespace Agent
