#include "Lan.h"

#include <Mox/ActivityClock.h>

namespace Sim {

U32 Lan::transmit(Frame frame) {
  const Node sender = frame.sender;
  Random random(seed_, U64{sender + 1} << 32 | ++sent_[sender]);
  frames_.push_back(std::move(frame));
  const auto number = static_cast<U32>(frames_.size() - 1);
  const Frame& sent = frames_.back();
  watcher_.onSent(sent);
  for (Node receiver = 0; receiver < part_.size(); ++receiver) {
    if (receiver == sender) continue;
    const bool lost = random.chance(quality_.loss) || part_[receiver] != part_[sender];
    if (lost) {
      watcher_.onLost(sent, receiver);
      continue;
    }
    deliver(number, receiver, random);
    if (random.chance(quality_.duplicate)) deliver(number, receiver, random);
  }
  return number;
}

void Lan::deliver(U32 number, Node receiver, Random& random) {
  queue_.push({.time = Mox::now() + random.between(quality_.leastDelay, quality_.mostDelay),
               .kind = Event::delivery,
               .subject = number,
               .node = receiver});
}

}  // namespace Sim
