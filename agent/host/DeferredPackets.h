// Packets of an interface that wait while others are handled: rests of reports that cost too much
// at once, and what their senders have sent since.
//
// Packets of a sender keep their order, and senders take turns. Where there is no room for a rest,
// the sender with the most packets has its latest pushed out: a flood of costly reports does not
// push out those of other hosts. Whole packets never push out anything.
//
//   if (deferred.holds(sender) && deferred.hasRoom()) deferred.add(sender, packet);
//   pushedOut = deferred.addRest(sender, rest);  // nothing of that sender waits, or it was taken
//   handle(deferred.take());
#pragma once

#include <array>
#include <deque>
#include <optional>

#include <Ilvo/IpAddr.h>
#include "ReceivedBatch.h"

namespace Agent {

class DeferredPackets {
 public:
  using Received = ReceivedBatch::Received;
  // A station, as its frames name it; zeros for a link without MAC addresses.
  struct Sender {
    Ilvo::IpAddr addr;
    std::array<Mox::U8, PacketView::macBytes> mac{};
    bool operator==(const Sender&) const = default;
  };
  struct Waiting {
    Received received;
    bool isRest;
  };
  // Each is as long as a frame at most, and may take as long to handle as a packet may cost.
  static constexpr size_t mostPackets = 64;

  bool empty() const { return packets_ == 0; }
  bool hasRoom() const { return packets_ < mostPackets; }
  bool holds(const Sender& sender) const;
  // Behind the packets of the same sender. There must be room.
  void add(const Sender& sender, Received received);
  // Before them. Returns what found no room for it, this one or another; nothing where all did.
  std::optional<Waiting> addRest(const Sender& sender, Received rest);
  // The first packet of the sender whose turn it is. There must be one.
  Received take();
  // Returns how many there were.
  size_t clear();

 private:
  struct Queue {
    Sender sender;
    std::deque<Waiting> packets;  // at least one
  };

  // The latest of the sender with the most; nothing where that would be the given one.
  std::optional<Waiting> pushOut(const Sender& sender);
  std::deque<Waiting>& packetsOf(const Sender& sender);

  std::deque<Queue> queues_;  // in the order of their turns
  size_t packets_ = 0;
};

}  // namespace Agent
