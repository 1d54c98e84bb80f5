// Fixture of tests that interfere. A notifiee may end what is being changed, a source, its group or
// the whole querier, and the handler that made the change must survive that at each of its changes.
//
//   EXPECT_GE(interfereAtEach([&] { start(); }, [&] { runFor(10.0); }, [&] { release(); },
//                             [&] { EXPECT_EQ(wheel_->armed(), 0u); }), 1u);
#pragma once

#include "TestBench.h"

namespace Gmp::Igmp::testing {

class NotificationBench : public TestBench {
 protected:
  using Deed = std::function<void()>;

  // Runs `prepare` and `action` once for each notification of the action, each time in a new world,
  // and interferes at that notification; `verify` checks what is left. Watches the querier, its
  // status, and group_ with its sources. The number of notifications.
  size_t interfereAtEach(const Deed& prepare, const Deed& action, const Deed& interfere,
                         const Deed& verify) {
    for (size_t at = 0;; ++at) {
      SCOPED_TRACE("interfered at notification " + std::to_string(at));
      watchers_.clear();
      freshWorld();
      prepare();
      size_t count = 0;
      notifiedAfter_ = 0;
      interfered_ = false;
      onNotified_ = [&](bool ofGroup) {
        if (count > at && ofGroup) ++notifiedAfter_;
        if (count++ != at) return;
        interfered_ = true;
        for (size_t i = 0; i < watchers_.size(); ++i) watchers_[i]->releaseMachine();
        interfere();
      };
      watchAll();
      action();
      if (count <= at) {
        watchers_.clear();
        return count;
      }
      verify();
    }
  }

  // How many changes of group_ and its sources have been published since the interference.
  size_t notifiedAfter_ = 0;

 private:
  class Watcher {
   public:
    virtual ~Watcher() = default;
    // Only its owner may keep the machine alive when it ends it.
    virtual void releaseMachine() = 0;
    virtual bool isOf(const Mox::EntityBase* entity) const = 0;
  };
  template <class E>
  class WatcherOf final : public Watcher, public E::NotifieeConst {
   public:
    WatcherOf(const Ptr<E>& entity, NotificationBench& bench)
        : E::NotifieeConst(entity), bench_(bench) {}
    void onAttr(Mox::AttrId) override { notified(); }
    void onMember(Mox::AttrId, U32) override { notified(); }
    void releaseMachine() override {
      constexpr bool machine = std::is_same_v<E, QuerierSm> || std::is_same_v<E, QuerierGroupSm> ||
                               std::is_same_v<E, QuerierGroupSourceSm>;
      if (machine) this->notifierIs(nullptr);
    }
    bool isOf(const Mox::EntityBase* entity) const override {
      return this->notifier().get() == entity;
    }

   private:
    void notified() {
      constexpr bool ofGroup =
          std::is_same_v<E, QuerierGroupStatus> || std::is_same_v<E, QuerierSourceStatus>;
      if (ofGroup) bench_.watchAll();  // a new source, perhaps
      bench_.onNotified_(ofGroup);
    }
    NotificationBench& bench_;
  };

  template <class E>
  void watchOne(const Ptr<E>& entity) {
    if (!entity) return;
    for (size_t i = 0; i < watchers_.size(); ++i) {
      if (watchers_[i]->isOf(entity.get())) return;
    }
    watchers_.push_back(std::make_unique<WatcherOf<E>>(entity, *this));
  }
  void watchAll() {
    if (interfered_) return;
    watchOne(querier_);
    watchOne(status_);
    if (const Ptr<QuerierGroupStatus> status = groupStatus(group_)) {
      watchOne(status);
      for (const IpAddr addr : status->source().keys()) watchOne(status->source(addr));
    }
    if (const Ptr<QuerierGroupSm> sm = groupSm(group_)) {
      watchOne(sm);
      for (const IpAddr addr : sm->source().keys()) watchOne(sm->source(addr));
    }
  }

  std::vector<std::unique_ptr<Watcher>> watchers_;
  std::function<void(bool)> onNotified_;
  bool interfered_ = false;
};

}  // namespace Gmp::Igmp::testing
