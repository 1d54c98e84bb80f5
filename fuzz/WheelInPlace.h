// The timer wheel of a fuzz target's world: a new one for each input, in the same memory, since to
// map and unmap as much takes a fifth of an execution. Nothing may hold the wheel any longer than
// the world.
//
//   const WheelInPlace wheel_{begin};  // before all that uses it
//   querierSmFactory(..., wheel_.ptr(), ...);
#pragma once

#include <cstddef>
#include <new>

#include <MoxBase/Ptr.h>
#include <Obel/TimerWheel.h>

#include "Property.h"

namespace Fuzz {

class WheelInPlace {
 public:
  explicit WheelInPlace(Mox::Seconds start)
      : wheel_(Mox::Ptr<Obel::TimerWheel>::adopt(::new (memory) Obel::TimerWheel(start))) {}
  ~WheelInPlace() {
    Obel::TimerWheel* const wheel = wheel_.release();
    property(wheel->refs() == 1, "nothing outlives its world");
    wheel->~TimerWheel();
  }
  WheelInPlace(const WheelInPlace&) = delete;
  WheelInPlace& operator=(const WheelInPlace&) = delete;

  const Mox::Ptr<Obel::TimerWheel>& ptr() const { return wheel_; }
  Obel::TimerWheel* operator->() const { return wheel_.get(); }

 private:
  alignas(Obel::TimerWheel) static inline std::byte memory[sizeof(Obel::TimerWheel)];
  Mox::Ptr<Obel::TimerWheel> wheel_;
};

}  // namespace Fuzz
