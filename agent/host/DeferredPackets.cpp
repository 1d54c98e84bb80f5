#include "DeferredPackets.h"

#include <algorithm>
#include <utility>

namespace Agent {

bool DeferredPackets::holds(const Sender& sender) const {
  return std::ranges::find(queues_, sender, &Queue::sender) != queues_.end();
}

void DeferredPackets::add(const Sender& sender, Received received) {
  packetsOf(sender).push_back({std::move(received), false});
  ++packets_;
}

std::optional<DeferredPackets::Waiting> DeferredPackets::addRest(const Sender& sender,
                                                                 Received rest) {
  std::optional<Waiting> pushedOut;
  if (!hasRoom()) {
    pushedOut = pushOut(sender);
    if (!pushedOut) return Waiting{std::move(rest), true};
  }
  packetsOf(sender).push_front({std::move(rest), true});
  ++packets_;
  return pushedOut;
}

DeferredPackets::Received DeferredPackets::take() {
  Queue queue = std::move(queues_.front());
  queues_.pop_front();
  Received first = std::move(queue.packets.front().received);
  queue.packets.pop_front();
  --packets_;
  if (!queue.packets.empty()) queues_.push_back(std::move(queue));
  return first;
}

size_t DeferredPackets::clear() {
  queues_.clear();
  return std::exchange(packets_, 0);
}

std::optional<DeferredPackets::Waiting> DeferredPackets::pushOut(const Sender& sender) {
  const auto held = [](const Queue& each) { return each.packets.size(); };
  const auto most = std::ranges::max_element(queues_, {}, held);
  const auto own = std::ranges::find(queues_, sender, &Queue::sender);
  const size_t ownAfter = (own == queues_.end() ? 0 : held(*own)) + 1;
  if (most != own && held(*most) <= ownAfter) return std::nullopt;
  Waiting latest = std::move(most->packets.back());
  most->packets.pop_back();
  --packets_;
  if (most->packets.empty()) queues_.erase(most);
  return latest;
}

std::deque<DeferredPackets::Waiting>& DeferredPackets::packetsOf(const Sender& sender) {
  const auto found = std::ranges::find(queues_, sender, &Queue::sender);
  if (found != queues_.end()) return found->packets;
  return queues_.emplace_back(Queue{.sender = sender, .packets = {}}).packets;
}

}  // namespace Agent
