// Measures for how long the event loop keeps packets and queries waiting.
//
// A gap is the time between two moments at which the loop can take packets from the rings: from
// the end of one reading of them to the begin of the next, or until the loop sleeps since there is
// nothing to do. It is wall-clock time, so system calls that wait and other programs on this
// processor count. What comes between a sleep and the next reading counts with its time of the
// processor alone, as the loop does not know when it woke. The opening of ports at the start is
// left out.
//
// Every change of the published state is sent to each reader, and sending it is work for the loop
// that changes it again. So it is published once a second at most, when the loop has a batch to
// handle anyway, and before a request is answered.
//
//   watch.ringsReadBegins();
//   rings.readReady();
//   watch.ringsReadEnds();
//   ...
//   watch.publishIfDue();
//   watch.sleepBegins();
#pragma once

#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <Report/LoopState.h>

namespace Agent {

class LoopWatch {
 public:
  static constexpr Mox::Seconds publishInterval = 1.0;

  const Mox::Ptr<LoopState>& state() const { return state_; }

  void ringsReadBegins();
  void ringsReadEnds();
  void sleepBegins();
  // What the loop does now is no gap: it opens its ports at the start.
  void gapDel() { gapBegin_ = Mox::never; }
  // A general query is sent, so long after it was due.
  void querySent(Mox::Seconds delay) { queryDelays_.add(delay); }

  void publishIfDue();
  void publish();

 private:
  void gapEnds();

  const Mox::Ptr<LoopState> state_ = Mox::makePtr<LoopState>();
  Mox::U64 batches_ = 0;
  Mox::Seconds longestGap_ = 0.0;
  DelayCounts gaps_;
  DelayCounts queryDelays_;
  bool hasSlept_ = false;
  // Since when the gap lasts: on the activity clock, or on that of this thread's processor time
  // where the loop has slept.
  Mox::Seconds gapBegin_ = Mox::never;
  Mox::Seconds published_ = 0.0;
};

}  // namespace Agent
