// Events that wait in a queue of a bounded size for an output that may take them slowly or not at
// all.
//
// They are handed out once a batch, without ever waiting for the output. An event that finds no
// room is lost; how many were lost is an event of its own as soon as the output takes events again.
// What form events have, and where they go, is up to the derived class.
#pragma once

#include <chrono>
#include <cstddef>

#include <Events/Event.h>
#include <MoxBase/Types.h>

namespace Agent {

class QueuedEvents : public EventSink {
 public:
  static constexpr std::size_t queueBytes = 1024 * 1024;

  explicit QueuedEvents(std::size_t mostBytes) : mostBytes_(mostBytes) {}

  void event(const Event& event) final;
  bool flush() final;
  bool isEmpty() const final { return waiting() == 0; }
  // Hands out what is left, and waits for the output until that time at most.
  void finish(Mox::Seconds end);
  // All that were lost so far.
  Mox::U64 lost() const { return lost_; }

 protected:
  std::size_t mostBytes() const { return mostBytes_; }
  // True while what was lost could not be reported: what comes then is lost, too, so that the
  // number stands in the place of the gap.
  bool isBehind();
  void lose() { ++lost_; }

 private:
  // The bytes in the queue.
  virtual std::size_t waiting() const = 0;
  // False when the queue has no room for it.
  virtual bool add(const Event& event) = 0;
  // As much as the output takes now.
  virtual void write() = 0;
  virtual bool waitWritable(std::chrono::milliseconds patience) = 0;

  const std::size_t mostBytes_;
  Mox::U64 lost_ = 0;
  Mox::U64 lostReported_ = 0;
};

}  // namespace Agent
