// One batch of the loop: the gap before it if there is one, the packets of all rings, the wheel.
#include <algorithm>
#include <chrono>

#include <Mox/ActivityClock.h>
#include <boost/asio/post.hpp>

#include "AgentLoopImpl.h"

namespace Agent {

namespace {

// How long timers may keep the loop from the rings. Those that are left over are due at once. One
// may begin just before that and take as long again.
constexpr Mox::Seconds turnQuantum = 0.001;
constexpr size_t timersOfTurn = 2;  // between two looks at the clock
// A batch of packets takes no longer, so that timers that are due do not wait.
constexpr Mox::Seconds longestBatch = 0.05;
constexpr std::chrono::milliseconds packetsPause(1);
// Timers wait no longer for packets that the loop has no time for: queries leave in a flood, too.
constexpr Mox::Seconds longestBacklog = 0.05;
// A timer that is less late is no sign of a gap to any querier: half of the shortest query response
// interval.
constexpr Mox::Seconds leastGap = 0.05;

}  // namespace

// The descriptor is readable while any ring is. The kernel hands a block out when it is full, which
// in a flood is every few packets: what arrives within a millisecond is handled together. Meanwhile
// the descriptor is not watched, since each block would wake this process.
void AgentLoop::Impl::waitForPackets() {
  if (!packets_.is_open()) packets_.assign(rings_.fd());
  packets_.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                      [this](const boost::system::error_code& failed) {
                        if (failed) return;
                        handleBatch();
                        if (!rings_.isDrained()) return waitForPackets();
                        packets_.release();
                        packetsTimer_.expires_after(packetsPause);
                        packetsTimer_.async_wait([this](const boost::system::error_code& ended) {
                          if (!ended) waitForPackets();
                        });
                      });
}

void AgentLoop::Impl::handleBatch() {
  inBatch_ = true;
  seeGap();
  rebuildNext();
  watch_.ringsReadBegins();
  const Mox::Seconds begin = Mox::now();
  rings_.readReady(batchDuration());
  watch_.ringsReadEnds();
  if (rebuilding_.empty()) {
    turnWheel(std::min(begin, Mox::now() - std::min(rings_.backlog(), longestBacklog)));
  }
  inBatch_ = false;
  lastBatchEnd_ = Mox::now();
  watch_.publishIfDue();
  reportChanges();
}

// Where there is more to do than time, packets get at least as much of it as everything else:
// clients can wait, and rings overflow.
Mox::Seconds AgentLoop::Impl::batchDuration() const {
  return std::clamp(Mox::now() - lastBatchEnd_, RingPolls::usualBatch, longestBatch);
}

// To the time before which all packets have been handled: an answer that waits in a ring counts
// before the timer that it answers.
void AgentLoop::Impl::turnWheel(Mox::Seconds to) {
  const Mox::Seconds end = Mox::now() + turnQuantum;
  do {
    wheel_->turn(to, timersOfTurn);
  } while (wheel_->nextDue() <= to && Mox::now() < end);
}

// A loop that was stopped comes back late to a timer. One that has much to do is late, too, but has
// just handled a batch. While the machine was suspended, the timers stood still.
void AgentLoop::Impl::seeGap() {
  const auto late = [&](Mox::Seconds due) { return Mox::now() - std::max(due, lastBatchEnd_); };
  const Mox::Seconds suspended = suspended_.sinceLastCall();
  if (suspended <= leastGap && late(wheel_->nextDue()) <= leastGap) return;  // costs less
  const Mox::Seconds gap = std::max(late(wheel_->nextWake()), 0.0) + suspended;
  if (gap <= leastGap) return;
  gap_ = gap;
  rebuilding_.assign(configured_.names.begin(), configured_.names.end());
}

// Some of them. Until all are done no timer counts as silence: the wheel stands still.
void AgentLoop::Impl::rebuildNext() {
  if (rebuilding_.empty()) return;
  const Mox::Seconds end = Mox::now() + turnQuantum;
  do {
    const auto found = queriersByName_.find(rebuilding_.front());
    if (found != queriersByName_.end()) found->second->rebuildAfterGap(gap_);
    rebuilding_.pop_front();
  } while (!rebuilding_.empty() && Mox::now() < end);
  boost::asio::post(io_, [this] { handleBatch(); });
}

}  // namespace Agent
