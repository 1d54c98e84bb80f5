// A timer that calls one handler, named where the timer is declared. The machine owns its timers,
// so it outlives them.
//
//   TimerReactor<QuerierGroupSm, &QuerierGroupSm::handleRexmitTimer> rexmitTimer_{wheel, *this};
//   rexmitTimer_.timeMinIs(wheel->now() + 1.0);
#pragma once

#include <utility>

#include <Obel/TimerWheel.h>

namespace Obel {

template <class Sm, void (Sm::*handler)()>
class TimerReactor final : public TimerWheel::Reactor {
 public:
  TimerReactor(Mox::Ptr<const TimerWheel> wheel, Sm& sm) : Reactor(std::move(wheel)), sm_(sm) {}
  void onTime() override { (sm_.*handler)(); }

 private:
  Sm& sm_;
};

}  // namespace Obel
