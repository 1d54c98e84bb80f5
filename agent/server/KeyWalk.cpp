#include "KeyWalk.h"

#include <algorithm>

namespace Agent {

namespace {
constexpr size_t membersOfStep = 4096;
}

bool KeyWalk::step() {
  bookmark_ = collection_.walk(entity(), bookmark_, membersOfStep, [this](Mox::U32 key) {
    if (!fits_ || fits_(key)) add(key);
  });
  if (bookmark_ != 0 && !(collection_.ordered && keys_.size() == most_)) return true;
  if (!collection_.ordered) std::ranges::sort_heap(keys_);
  return false;
}

void KeyWalk::add(Mox::U32 key) {
  if (keys_.size() < most_) {
    keys_.push_back(key);
    if (!collection_.ordered) std::ranges::push_heap(keys_);
  } else if (!collection_.ordered && key < keys_.front()) {
    std::ranges::pop_heap(keys_);
    keys_.back() = key;
    std::ranges::push_heap(keys_);
  }
}

}  // namespace Agent
