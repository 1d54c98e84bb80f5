// Whether a reader of the attribute log takes what waits for it fast enough: at least 64 KiB a
// second over the stall timeout.
//
// The protocol's work waits for the most congested reader, so a reader that takes a little now and
// then, or everything after a long pause, must not stay for that. What counts is the time in
// arrears: time without gives back as much of it and no more, so a reader cannot be in arrears for
// more than half of the time. A reader that has taken everything that was sent before the last poll
// is not in arrears, however little that was.
//
//   ReaderArrears arrears(30.0);
//   if (arrears.isTooSlow(Mox::now(), {.sent = ..., .sends = ..., .queued = ...})) disconnect();
#pragma once

#include <deque>

#include <MoxBase/Types.h>

namespace Agent {

class ReaderArrears {
 public:
  static constexpr double leastRate = 65536.0;  // bytes a second

  // Of its socket, at a poll.
  struct Sample {
    Mox::U64 sent = 0;       // bytes that the kernel has taken
    Mox::U64 sends = 0;      // in so many calls
    int queued = 0;          // what the kernel counts as queued, with its own overhead
    bool isBlocked = false;  // the kernel takes no more
  };

  explicit ReaderArrears(Mox::Seconds timeout) : timeout_(timeout) {}

  // To be called at each poll, with the time.
  bool isTooSlow(Mox::Seconds now, const Sample& sample);

 private:
  // Time in arrears, and the bytes that the reader took meanwhile.
  struct Step {
    Mox::Seconds length;
    double taken;
  };

  bool isBehind(const Sample& sample) const;
  void add(const Step& step);
  void giveBack(Mox::Seconds time);

  const Mox::Seconds timeout_;
  Sample last_;
  Mox::Seconds lastTime_ = 0.0;
  bool wasBehind_ = false;
  std::deque<Step> steps_;  // the latest ones, as long as the timeout together
  Step sum_{};              // of them
};

}  // namespace Agent
