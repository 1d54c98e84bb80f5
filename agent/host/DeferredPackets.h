// Packets of an interface that wait while others are handled: rests of reports that cost too much
// at once, and what their senders have sent since.
//
// Packets of a sender keep their order, and senders take turns. Where there is no room, the sender
// with the most packets loses its latest: a flood of costly reports does not push out those of
// other hosts.
//
//   deferred.addRest(sender, packet);  // nothing of that sender waits, or it was taken just now
//   if (deferred.holds(sender)) deferred.add(sender, packet);
//   handle(deferred.take());
#pragma once

#include <deque>

#include <Ilvo/IpAddr.h>
#include "ReceivedBatch.h"

namespace Agent {

class DeferredPackets {
 public:
  using Received = ReceivedBatch::Received;
  // Each is as long as a frame at most, and may take as long to handle as a packet may cost.
  static constexpr size_t mostPackets = 64;

  bool empty() const { return packets_ == 0; }
  bool holds(Ilvo::IpAddr sender) const;
  // Behind the packets of the same sender. False when a packet was lost, be it this or another.
  bool add(Ilvo::IpAddr sender, Received received);
  // Before them.
  bool addRest(Ilvo::IpAddr sender, Received received);
  // The first packet of the sender whose turn it is. There must be one.
  Received take();
  // Returns how many there were.
  size_t clear();

 private:
  struct Sender {
    Ilvo::IpAddr addr;
    std::deque<Received> packets;  // at least one
  };
  // False when there is none for one more packet of that sender.
  bool makeRoom(Ilvo::IpAddr sender);
  Sender& senderAt(Ilvo::IpAddr addr);

  std::deque<Sender> senders_;  // in the order of their turns
  size_t packets_ = 0;
};

}  // namespace Agent
