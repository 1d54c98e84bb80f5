// Timers as attributes: moved to another wheel by a setter like any other.
#include <string>
#include <utility>

#include <Mox/Entity.h>
#include <Mox/GenericAccess.h>
#include <gtest/gtest.h>

namespace Mox {
namespace {

struct Wheel : RefCounted {};

// A timer as the table sees one: it has a wheel and a time to show.
class Alarm {
 public:
  static constexpr const char* valueTypeName = "Test::Alarm";
  const Ptr<const Wheel>& wheel() const { return wheel_; }
  void wheelIs(Ptr<const Wheel> wheel) { wheel_ = std::move(wheel); }

 private:
  Ptr<const Wheel> wheel_;
};
Seconds shownValue(const Alarm&) { return 7.5; }

class Kitchen final : public Entity<Kitchen> {
 public:
  static constexpr const char* entityTypeName = "Test::Kitchen";
  class NotifieeConst : public NotifieeOf<Kitchen> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onAlarm() {}
  };
  std::string name() const { return {}; }
  const Ptr<const Wheel>& alarm() const { return alarm_.wheel(); }
  void alarmIs(Ptr<const Wheel> wheel) { setWheel<&Kitchen::alarm_>(std::move(wheel)); }

 private:
  friend class Entity<Kitchen>;
  Alarm alarm_;

 public:
  static constexpr AttrTable attributes{
      Constant{"name", &Kitchen::name},
      Timer{"alarm", &Kitchen::alarm_, &Kitchen::alarmIs, &NotifieeConst::onAlarm}};
};

class AlarmCount final : public Kitchen::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onAlarm() override {
    ++notified_;
    seen_ = notifier()->alarm();
  }
  int notified_ = 0;
  Ptr<const Wheel> seen_;
};

class EntityTimerTest : public testing::Test {
 protected:
  Ptr<Kitchen> kitchen_ = makePtr<Kitchen>();
  Ptr<const Wheel> wheel_ = makePtr<Wheel>();
};

TEST_F(EntityTimerTest, setterMovesTheTimerAndThenNotifies) {
  const AlarmCount count(kitchen_);
  kitchen_->alarmIs(wheel_);
  EXPECT_EQ(kitchen_->alarm(), wheel_);
  EXPECT_EQ(count.notified_, 1);
  EXPECT_EQ(count.seen_, wheel_);
}

TEST_F(EntityTimerTest, theSameWheelNotifiesNobody) {
  kitchen_->alarmIs(wheel_);
  const AlarmCount count(kitchen_);
  kitchen_->alarmIs(wheel_);
  EXPECT_EQ(count.notified_, 0);
}

TEST_F(EntityTimerTest, wheelIsSetByNameAndTheTimeIsRead) {
  const AlarmCount count(kitchen_);
  EXPECT_TRUE(attrPointerIs(*kitchen_, "alarm", wheel_));
  EXPECT_EQ(kitchen_->alarm(), wheel_);
  EXPECT_EQ(count.notified_, 1);
  EXPECT_EQ(attrValue(*kitchen_, "alarm"), Value(7.5));
  EXPECT_FALSE(attrValueIs(*kitchen_, "alarm", Value(1.0))) << "only doSetTimer arms a timer";
  EXPECT_FALSE(attrPointerIs(*kitchen_, "alarm", Ptr<Kitchen>())) << "not a wheel";
}

TEST_F(EntityTimerTest, rowIsAPartThatShowsATime) {
  const AttrInfo& attr = *kitchen_->type().attr("alarm");
  EXPECT_EQ(attr.kind, AttrKind::part);
  EXPECT_EQ(attr.unit, Unit::time);
  EXPECT_EQ(attr.value, ValueKind::seconds);
  EXPECT_STREQ(attr.typeName, "Test::Alarm");
}

}  // namespace
}  // namespace Mox
