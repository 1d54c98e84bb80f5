// Fixture of tests that interfere. Whoever is told of a change may end what is just being changed,
// a source, its group or the whole querier, and the handler that made the change has to bear it,
// whichever of its changes it was.
//
//   EXPECT_GE(interfereAtEach([&] { start(); }, [&] { runFor(10.0); }, [&] { release(); },
//                             [&] { EXPECT_EQ(wheel_->armed(), 0u); }), 1u);
#pragma once

#include "TestBench.h"

namespace Gmp::Igmp::testing {

class NotificationBench : public TestBench {
 protected:
  using Deed = std::function<void()>;

  // Does `prepare` and `action` as often as the action tells something, each time in a world of its
  // own, and interferes at another notification each time; `verify` looks at what is left. Watches
  // the querier, its status, and group_ with its sources. Says how many notifications there were.
  size_t interfereAtEach(const Deed& prepare, const Deed& action, const Deed& interfere,
                         const Deed& verify) {
    for (size_t at = 0;; ++at) {
      SCOPED_TRACE("interfered at notification " + std::to_string(at));
      tellers_.clear();
      freshWorld();
      prepare();
      size_t told = 0;
      toldAfter_ = 0;
      interfered_ = false;
      onTold_ = [&](bool ofGroup) {
        if (told > at && ofGroup) ++toldAfter_;
        if (told++ != at) return;
        interfered_ = true;
        for (size_t i = 0; i < tellers_.size(); ++i) tellers_[i]->letMachineGo();
        interfere();
      };
      watchAll();
      action();
      if (told <= at) {
        tellers_.clear();
        return told;
      }
      verify();
    }
  }

  // How many changes of group_ and its sources have been published since the interference.
  size_t toldAfter_ = 0;

 private:
  class Teller {
   public:
    virtual ~Teller() = default;
    // Nobody but the machine's owner may keep it alive when that lets it go.
    virtual void letMachineGo() = 0;
    virtual bool isOf(const Mox::EntityBase* entity) const = 0;
  };
  template <class E>
  class TellerOf final : public Teller, public E::NotifieeConst {
   public:
    TellerOf(const Ptr<E>& entity, NotificationBench& bench)
        : E::NotifieeConst(entity), bench_(bench) {}
    void onAttr(Mox::AttrId) override { tell(); }
    void onMember(Mox::AttrId, U32) override { tell(); }
    void letMachineGo() override {
      constexpr bool machine = std::is_same_v<E, QuerierSm> || std::is_same_v<E, QuerierGroupSm> ||
                               std::is_same_v<E, QuerierGroupSourceSm>;
      if (machine) this->notifierIs(nullptr);
    }
    bool isOf(const Mox::EntityBase* entity) const override {
      return this->notifier().get() == entity;
    }

   private:
    void tell() {
      constexpr bool ofGroup =
          std::is_same_v<E, QuerierGroupStatus> || std::is_same_v<E, QuerierSourceStatus>;
      if (ofGroup) bench_.watchAll();  // a new source, perhaps
      bench_.onTold_(ofGroup);
    }
    NotificationBench& bench_;
  };

  template <class E>
  void watchOne(const Ptr<E>& entity) {
    if (!entity) return;
    for (size_t i = 0; i < tellers_.size(); ++i) {
      if (tellers_[i]->isOf(entity.get())) return;
    }
    tellers_.push_back(std::make_unique<TellerOf<E>>(entity, *this));
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

  std::vector<std::unique_ptr<Teller>> tellers_;
  std::function<void(bool)> onTold_;
  bool interfered_ = false;
};

}  // namespace Gmp::Igmp::testing
