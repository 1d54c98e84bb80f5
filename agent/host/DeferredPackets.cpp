#include "DeferredPackets.h"

#include <algorithm>
#include <utility>

namespace Agent {

using Ilvo::IpAddr;

bool DeferredPackets::holds(IpAddr sender) const {
  return std::ranges::find(senders_, sender, &Sender::addr) != senders_.end();
}

bool DeferredPackets::add(IpAddr sender, Received received) {
  const bool hasRoom = packets_ < mostPackets;
  if (!hasRoom && !makeRoom(sender)) return false;
  senderAt(sender).packets.push_back(std::move(received));
  ++packets_;
  return hasRoom;
}

bool DeferredPackets::addRest(IpAddr sender, Received received) {
  const bool hasRoom = packets_ < mostPackets;
  if (!hasRoom && !makeRoom(sender)) return false;
  senderAt(sender).packets.push_front(std::move(received));
  ++packets_;
  return hasRoom;
}

DeferredPackets::Received DeferredPackets::take() {
  Sender sender = std::move(senders_.front());
  senders_.pop_front();
  Received first = std::move(sender.packets.front());
  sender.packets.pop_front();
  --packets_;
  if (!sender.packets.empty()) senders_.push_back(std::move(sender));
  return first;
}

size_t DeferredPackets::clear() {
  senders_.clear();
  return std::exchange(packets_, 0);
}

bool DeferredPackets::makeRoom(IpAddr sender) {
  const auto held = [](const Sender& each) { return each.packets.size(); };
  const auto most = std::ranges::max_element(senders_, {}, held);
  const auto own = std::ranges::find(senders_, sender, &Sender::addr);
  const size_t ownAfter = (own == senders_.end() ? 0 : held(*own)) + 1;
  if (most == own || held(*most) <= ownAfter) return false;
  most->packets.pop_back();
  --packets_;
  return true;
}

DeferredPackets::Sender& DeferredPackets::senderAt(IpAddr addr) {
  const auto found = std::ranges::find(senders_, addr, &Sender::addr);
  if (found != senders_.end()) return *found;
  return senders_.emplace_back(Sender{.addr = addr, .packets = {}});
}

}  // namespace Agent
