// Whether a reader of the attribute log takes what waits for it fast enough: at least 64 KiB a
// second over the stall timeout.
//
// The protocol's work waits for the most congested reader, so a reader that takes a little now and
// then must not stay for that. A reader that has taken everything that was sent before the last
// poll is not in arrears, however little that was.
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
  struct Progress {
    Mox::Seconds time;
    Mox::S64 taken;  // by the reader, up to a constant
  };

  const Mox::Seconds timeout_;
  Sample last_;
  std::deque<Progress> progress_;  // since it is in arrears, over the timeout at most
};

}  // namespace Agent
