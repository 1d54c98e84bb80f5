// Fixture of the wheel's tests: every timer writes its own mark, so an order is one string to
// compare.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include <Obel/TimerWheel.h>
#include <gtest/gtest.h>

namespace Obel {

class TimerWheelFixture : public testing::Test {
 protected:
  using Then = std::function<void()>;

  struct Mark final : TimerWheel::Reactor {
    Mark(const Mox::Ptr<const TimerWheel>& wheel, std::string& fired, char mark)
        : Reactor(wheel), fired_(fired), mark_(mark) {}
    void onTime() override {
      fired_ += mark_;
      const Then then = then_;  // it may destroy this reactor
      if (then) then();
    }
    std::string& fired_;
    const char mark_;
    Then then_;
  };

  // The timer of that mark, made when it is first asked for.
  Mark& timer(char mark) {
    std::unique_ptr<Mark>& made = marks_[mark];
    if (!made) made = std::make_unique<Mark>(wheel_, fired_, mark);
    return *made;
  }
  void arm(char mark, Mox::Seconds at, Then then = {}) {
    timer(mark).then_ = std::move(then);
    timer(mark).timeMinIs(at);
  }
  void disarm(char mark) { timer(mark).timeMinIs(Mox::never); }
  void destroy(char mark) { marks_.erase(mark); }
  // How often the host wakes until `until`, if it wakes when nextDue says.
  int wakeUpsUntil(Mox::Seconds until) {
    int turns = 0;
    for (; wheel_->nextDue() <= until; ++turns) wheel_->turn(wheel_->nextDue());
    return turns;
  }

  // Virtual time: it stands still until it is moved, and it does not begin at 0.
  const Mox::Ptr<TimerWheel> wheel_ = Mox::makePtr<TimerWheel>(1000.0);
  std::string fired_;
  std::map<char, std::unique_ptr<Mark>> marks_;
};

}  // namespace Obel
