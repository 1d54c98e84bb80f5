// Timer service: calls reactors back at absolute times of the activity clock, never early.
//
// Order is contract: within one turn by timeMin, equal times in the order of arming, where arming
// again counts as arming, for the same time too. A time already reached fires in the next turn,
// which follows at once: nextDue() is then <= now. A reactor may be armed, disarmed, moved to
// another wheel or destroyed from any callback, its own included; its destructor disarms it. Arm,
// re-arm, disarm: O(1), no allocation. One thread.
//
// The wheel has no clock: its host turns it, and now() stands still between two turns. Hosts that
// sleep turn the wheel before they handle the event that woke them, so that timers are armed from
// the real now.
//
//   TimerReactor<Sm, &Sm::handleTick> tick(wheel, sm);
//   tick.timeMinIs(wheel->now() + 5.0);  // timeMinIs(never) disarms
//   ... sleep until wheel->nextDue(), then: wheel->turn(clock());
#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <vector>

#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Obel {

// Inside: a tick is 1/128 s. Timers of ticks that the cursor has not reached lie in slots, four
// levels of 256, each level 256 times as coarse; a slot is filed anew, or is due, when the cursor
// comes to its start. Timers of reached ticks lie in one of two lists: due_, in order of firing,
// and soon_, those armed since the last turn. A turn moves the cursor to its time, puts the timers
// that it passed and those of soon_ in order into due_, and fires the front of due_ up to its time:
// a timer armed by a callback goes to a slot or to soon_, thus not into the turn that runs.
class MOX_PUBLIC TimerWheel final : public Mox::RefCounted {
  struct Link {
    Link* prev;
    Link* next;
  };

 public:
  class Reactor;

  explicit TimerWheel(Mox::Seconds start = 0.0);
  ~TimerWheel() override;

  // The time of the last turn, or where the wheel began.
  Mox::Seconds now() const { return now_; }

  // When to turn next: never later than the earliest timer; `never` when none is armed. It costs no
  // search, thus is a lower bound: for timers in slots the start of a slot, which may be one that a
  // timer has left. A host may so wake with nothing to fire, once for each level that a timer comes
  // down and once for a timer that was put off or disarmed.
  Mox::Seconds nextDue() const;

  // The same for a host that goes to sleep: a later bound, for which a few timers are looked at. A
  // single timer wakes it once, however far away it is.
  Mox::Seconds nextWake() const;

  // Fires the timers that are due at `now` and returns how many it fired. The wheel never goes
  // back: an earlier time, or one that is not finite, turns it at its own time. Not from a
  // callback.
  //
  // With a limit it fires at most so many, and moves only some of those in slots, so that a million
  // timers of one time take as many short turns; the next turn is due at once then. Which of them
  // fire first is open, but those of one turn fire in order.
  size_t turn(Mox::Seconds now, size_t most = noLimit);
  static constexpr size_t noLimit = static_cast<size_t>(-1);

  // Virtual time: turn after turn, each at its time, until nothing is due by `until`, where the
  // wheel then stands. With `never`: until no timer is left.
  void advanceTo(Mox::Seconds until);

  // How many timers have a time.
  size_t armed() const { return armed_; }

 private:
  using Tick = Mox::S64;
  struct Key {
    Mox::Seconds time;
    Mox::U64 order;
    Reactor* reactor;
    bool operator<(const Key& other) const {
      return time != other.time ? time < other.time : order < other.order;
    }
  };

  static constexpr size_t levels = 4;
  static constexpr size_t levelBits = 8;
  static constexpr size_t slotsPerLevel = size_t{1} << levelBits;
  static constexpr size_t wordsPerLevel = slotsPerLevel / 64;
  // A slot is a bundle of lists, filled in turn and walked side by side: with a million timers the
  // time goes into waiting for memory, and one list would wait for one timer at a time.
  static constexpr size_t chains = 8;
  static constexpr Tick noStart = std::numeric_limits<Tick>::max();
  // Of a turn with a limit: how many timers it moves for each that it may fire, and how many wait
  // in due_, where they are put in order, before it moves no more.
  static constexpr size_t movesOfTimer = 64;
  static constexpr size_t mostCollected = 4096;
  // How many timers of a slot nextWake looks at.
  static constexpr size_t mostSearched = 32;
  // The place of a reactor: the number of its slot, or one of these.
  static constexpr Mox::U64 placeNear = levels * slotsPerLevel;  // in due_ or soon_
  static constexpr Mox::U64 placeNone = placeNear + 1;

  static Tick tickOf(Mox::Seconds time);
  static void clear(Link& list) { list.prev = list.next = &list; }
  static bool isEmpty(const Link& list) { return list.next == &list; }
  static void append(Link& list, Reactor& r);
  static void merge(Link& to, Link& from);
  static bool firesBefore(const Link* a, const Link* b);

  void rearm(Reactor& r, Mox::Seconds time) const;
  void remove(Reactor& r) const;
  Mox::U64 file(Reactor& r, Tick tick) const;
  void fileSoon(Reactor& r) const;
  void unfile(Reactor& r) const;
  Tick slotStart(size_t slot) const;
  Tick firstSlotStart() const;
  int firstOccupied(size_t level, size_t from) const;
  Mox::Seconds slotWake(size_t slot) const;
  Mox::Seconds nearDue() const;
  bool isMoving() const { return firstStart_ <= cursor_; }
  bool mayMove() const;
  void moveCursor(Tick target, size_t moves);
  size_t emptySlot(size_t slot, Tick target, size_t moves);
  void refile(Reactor& r, Tick target);
  void orderSoon();
  void appendScratch(Link& list);

  Mox::Seconds now_;
  // Every slot that starts before it is empty, and those that start at it, unless the last turn
  // ended before they were: firstStart_ is not behind it then. Else it is the tick of now_.
  Tick cursor_;
  size_t collected_ = 0;  // from such slots, while they are not empty
  bool turning_ = false;
  std::vector<Key> scratch_;  // timers to be put in order
  // Reactors hold the wheel as const: they cannot turn it, but they file themselves.
  mutable size_t armed_ = 0;
  mutable Mox::U64 nextOrder_ = 0;
  mutable Link due_;
  mutable Link soon_;
  mutable bool soonInOrder_ = true;            // both of soon_ when it is not empty
  mutable Mox::Seconds soonMin_ = Mox::never;  // a lower bound: disarming does not search
  mutable Tick firstStart_ = noStart;  // of the occupied slots; a lower bound too, for that reason
  mutable std::array<Mox::U64, levels * wordsPerLevel> occupied_{};
  mutable std::array<Mox::U32, levels * slotsPerLevel> slotSize_{};
  // Set up when a slot gets its first timer, so that a wheel is made in no time.
  mutable std::array<std::array<Link, chains>, levels * slotsPerLevel> slot_;
};

// A timer, with the function that it calls. Without a wheel it keeps its time, and is armed when it
// gets one.
class MOX_PUBLIC TimerWheel::Reactor : private TimerWheel::Link {
 public:
  static constexpr const char* valueTypeName = "Obel::TimerWheel::Reactor";

  explicit Reactor(Mox::Ptr<const TimerWheel> wheel);
  virtual ~Reactor();
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;

  // The absolute time to be called at; `never` when idle, which it is again when onTime begins.
  Mox::Seconds timeMin() const { return timeMin_; }
  // Arms, even for the old time: then behind its equals. Not a number counts as `never`.
  void timeMinIs(Mox::Seconds time) {
    // A slot is good for every time from its start on: when the cursor comes to it, the timer is
    // filed by the time that it has then. Most timers are put off again and again before that.
    if (time >= timeMin_ && time < Mox::never && place() < placeNear) {
      timeMin_ = time;
      whereIs(place(), wheel_.get()->nextOrder_++);
    } else {
      rearm(time);
    }
  }

  const Mox::Ptr<const TimerWheel>& wheel() const { return wheel_; }
  void wheelIs(Mox::Ptr<const TimerWheel> wheel);

  virtual void onTime() = 0;

 private:
  friend class TimerWheel;
  static constexpr unsigned placeBits = 12;

  Mox::U64 place() const { return where_ & ((Mox::U64{1} << placeBits) - 1); }
  Mox::U64 order() const { return where_ >> placeBits; }
  void rearm(Mox::Seconds time);
  void whereIs(Mox::U64 place, Mox::U64 order) { where_ = (order << placeBits) | place; }

  Mox::Ptr<const TimerWheel> wheel_;
  Mox::Seconds timeMin_ = Mox::never;
  // Place in the low 12 bits, the number of the arming above: 52 bits, enough for 14 years at ten
  // million a second.
  Mox::U64 where_ = placeNone;
};

// A timer is shown as the time at which it is due.
inline Mox::Seconds shownValue(const TimerWheel::Reactor& reactor) { return reactor.timeMin(); }

// There may be millions of them.
static_assert(sizeof(TimerWheel::Reactor) <= 48);

}  // namespace Obel
