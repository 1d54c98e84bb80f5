// A notifiee that interferes once, for tests of handlers that are interrupted while they publish.
//
//   Once<QuerierGroupStatus> once(status, "filterMode", [this] { release(); });
#pragma once

#include <functional>
#include <string>
#include <utility>

#include <GmpIgmpQuerier/Types.h>
#include <Mox/Entity.h>

namespace Gmp::Igmp::testing {

// Runs the action when the attribute changes for the first time.
template <class E>
class Once final : public E::NotifieeConst {
 public:
  Once(Ptr<const E> entity, std::string attribute, std::function<void()> action)
      : E::NotifieeConst(std::move(entity)),
        attribute_(std::move(attribute)),
        action_(std::move(action)) {}
  void onAttr(Mox::AttrId id) override { act(id); }
  void onMember(Mox::AttrId id, U32) override { act(id); }
  bool acted() const { return acted_; }

 private:
  void act(Mox::AttrId id) {
    if (acted_ || E::attributes.nameOf(id) != attribute_) return;
    acted_ = true;
    action_();
  }
  std::string attribute_;
  std::function<void()> action_;
  bool acted_ = false;
};

}  // namespace Gmp::Igmp::testing
