// The entities that the framework's tests watch: a garden with beds (an ordered collection) and
// pots (a hashed one), and a watcher that writes down its notifications, so that a history is one
// string.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include <Mox/Entity.h>
#include <Mox/HashMap.h>
#include <Mox/Name.h>
#include <Mox/OrderedMap.h>

#include "TestKey.h"

namespace Mox {

class Bed final : public Entity<Bed> {
 public:
  static constexpr const char* entityTypeName = "Test::Bed";
  class NotifieeConst : public NotifieeOf<Bed> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onWet() {}
  };

  explicit Bed(TestKey place) : place_(place) {}
  std::string name() const { return {}; }
  TestKey place() const { return place_; }
  bool wet() const { return wet_; }
  void wetIs(bool v) { set<&Bed::wet_>(v); }

 private:
  friend class Entity<Bed>;
  TestKey place_;
  bool wet_ = false;

 public:
  static constexpr AttrTable attributes{
      Constant{"name", &Bed::name},
      Key{"place", &Bed::place_},
      Attr{"wet", &Bed::wet_, &Bed::wetIs, &NotifieeConst::onWet},
  };
};

class Garden final : public Entity<Garden> {
 public:
  static constexpr const char* entityTypeName = "Test::Garden";
  using BedMap = OrderedMap<TestKey, Ptr<Bed>>;
  using PotMap = HashMap<TestKey, Ptr<Bed>>;
  class NotifieeConst : public NotifieeOf<Garden> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onArea() {}
    virtual void onVisits() {}
    virtual void onBed(TestKey) {}
    virtual void onBedImmediate() {}
    virtual void onBed() {}
    virtual void onPot(TestKey) {}
    virtual void onPotImmediate() {}
    virtual void onPot() {}
  };

  explicit Garden(Name name) : name_(name) {}
  ~Garden() override {
    bedDelAll();
    for (const TestKey key : pot_.keys()) potDel(key);
  }

  Name name() const { return name_; }
  double area() const { return area_; }
  double fence() const { return 4 * area_; }
  U32 visits() const { return visits_; }
  const BedMap& bed() const { return bed_; }
  Ptr<Bed> bed(TestKey key) const { return member<&Garden::bed_>(key); }
  const PotMap& pot() const { return pot_; }
  Ptr<Bed> pot(TestKey key) const { return member<&Garden::pot_>(key); }

  void areaIs(double v) { set<&Garden::area_>(v); }
  void visitsIs(U32 v) { set<&Garden::visits_>(v); }
  U32 visitsInc(U32 by) { return inc<&Garden::visits_>(by); }
  Ptr<Bed> bedIs(TestKey key) { return memberIs<&Garden::bed_>(key); }
  Ptr<Bed> bedDel(TestKey key) { return memberDel<&Garden::bed_>(key); }
  Ptr<Bed> bedDel(const BedMap::Iterator& at) { return bedDel(at.key()); }
  void bedDelAll() {
    for (auto at = bed_.begin(); at != bed_.end(); ++at) bedDel(at);
  }
  void bedNotify(TestKey key) { notifyMember<&Garden::bed_>(key); }
  void bedNotify() { notifyCollection<&Garden::bed_>(); }
  Ptr<Bed> potIs(TestKey key) { return memberIs<&Garden::pot_>(key); }
  Ptr<Bed> potDel(TestKey key) { return memberDel<&Garden::pot_>(key); }
  void potNotify() { notifyCollection<&Garden::pot_>(); }

 private:
  friend class Entity<Garden>;
  Name name_;
  double area_ = 1.0;
  U32 visits_ = 0;
  BedMap bed_;
  PotMap pot_;

 public:
  static constexpr AttrTable attributes{
      Key{"name", &Garden::name_},
      Attr{"area", &Garden::area_, &Garden::areaIs, &NotifieeConst::onArea},
      Derived{"fence", &Garden::fence},
      Counter{"visits", &Garden::visits_, &Garden::visitsIs, &Garden::visitsInc,
              &NotifieeConst::onVisits},
      Collection{"bed", &Garden::bed_, &NotifieeConst::onBed, &NotifieeConst::onBedImmediate,
                 &NotifieeConst::onBed},
      Collection{"pot", &Garden::pot_, &NotifieeConst::onPot, &NotifieeConst::onPotImmediate,
                 &NotifieeConst::onPot},
  };
};

// Adds its mark and each notification to `notified`, then does what its test asks for.
class Watcher final : public Garden::NotifieeConst {
 public:
  Watcher(const Ptr<Garden>& garden, std::string& notified, std::string mark = {},
          std::function<void()> then = {})
      : NotifieeConst(garden),
        then_(std::move(then)),
        notified_(notified),
        mark_(std::move(mark)) {}
  void onArea() override { note("area"); }
  void onVisits() override { note("visits"); }
  void onBed(TestKey key) override { note("bed(" + textOf(key) + ")"); }
  void onBedImmediate() override { note("bed!"); }
  void onBed() override { note("bed"); }
  void onPot(TestKey key) override { note("pot(" + textOf(key) + ")"); }
  void onPotImmediate() override { note("pot!"); }
  void onPot() override { note("pot"); }

  std::function<void()> then_;

 private:
  void note(const std::string& what) {
    notified_ += mark_ + what + " ";
    const std::function<void()> then = then_;  // it may destroy this watcher
    if (then) then();
  }
  std::string& notified_;
  const std::string mark_;
};

}  // namespace Mox
