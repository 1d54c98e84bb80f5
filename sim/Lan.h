// The Ethernet that all routers and hosts of a world share. It loses, delays, duplicates and
// reorders frames, for each receiver by itself, and can be cut into parts.
//
// What happens to a frame depends on the seed, its sender and how many frames that sender sent
// before, so that a story without some of its lines keeps most of its course.
#pragma once

#include <deque>
#include <vector>

#include "EventQueue.h"
#include "Random.h"

namespace Sim {

class Lan {
 public:
  struct Quality {
    double loss = 0.0;
    double duplicate = 0.0;
    Seconds leastDelay = 0.0001;
    Seconds mostDelay = 0.001;
  };
  class Watcher {
   public:
    virtual void onSent(const Frame& frame) = 0;
    virtual void onLost(const Frame& frame, Node receiver) = 0;

   protected:
    ~Watcher() = default;
  };

  Lan(EventQueue& queue, Node nodes, U64 seed, Watcher& watcher)
      : queue_(queue), seed_(seed), watcher_(watcher), sent_(nodes), part_(nodes) {}

  void qualityIs(const Quality& quality) {
    quality_ = quality;
    longestDelay_ = std::max(longestDelay_, quality.mostDelay);
  }
  // Only nodes of the same part reach each other.
  void partIs(Node node, unsigned part) { part_[node] = part; }
  // Since the beginning.
  Seconds longestDelay() const { return longestDelay_; }

  // Returns the number of the frame.
  U32 transmit(Frame frame);
  const Frame& frame(U32 number) const { return frames_[number]; }

 private:
  void deliver(U32 number, Node receiver, Random& random);

  EventQueue& queue_;
  const U64 seed_;
  Watcher& watcher_;
  Quality quality_;
  Seconds longestDelay_ = 0.0;
  std::vector<U64> sent_;  // frames, by node
  std::vector<unsigned> part_;
  std::deque<Frame> frames_;
};

}  // namespace Sim
