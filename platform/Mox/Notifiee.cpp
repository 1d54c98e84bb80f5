#include <Mox/Notifiee.h>

#include <algorithm>

namespace Mox {

void NotifieeList::remove(const Notifiee* notifiee) {
  const auto found = std::find(list_.begin(), list_.end(), notifiee);
  if (found == list_.end()) return;
  if (walks_ == 0) {
    list_.erase(found);
  } else {
    *found = nullptr;
    holes_ = true;
  }
}

size_t NotifieeList::size() const {
  return static_cast<size_t>(
      std::count_if(list_.begin(), list_.end(), [](const Notifiee* n) { return n != nullptr; }));
}

void NotifieeList::closeHoles() {
  std::erase(list_, nullptr);
  holes_ = false;
}

}  // namespace Mox
