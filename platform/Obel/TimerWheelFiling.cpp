// The places of timers between arming and firing.
#include <algorithm>
#include <bit>
#include <utility>

#include <Obel/TimerWheel.h>

namespace Obel {

using Mox::Seconds;
using Mox::U32;
using Mox::U64;

namespace {
constexpr size_t levelOf(size_t slot) { return slot >> 8; }

// Both ends: half of the reactors lie across two cache lines.
void prefetch(const void* reactor) {
  __builtin_prefetch(reactor);
  __builtin_prefetch(static_cast<const char*>(reactor) + 32);
}
}  // namespace

// Times so far away that ticks would not be exact in a double share the last tick: they come due
// together with it, and in due_ they are ordered by their real times.
TimerWheel::Tick TimerWheel::tickOf(Seconds time) {
  constexpr Seconds lastTick = 9007199254740992.0;  // 2^53
  const Seconds exact = std::clamp(time * 128, -lastTick, lastTick);
  const Tick tick = static_cast<Tick>(exact);
  return tick - (exact < static_cast<Seconds>(tick) ? 1 : 0);  // down, where a cast goes to zero
}

void TimerWheel::append(Link& list, Reactor& r) {
  r.prev = list.prev;
  r.next = &list;
  list.prev->next = &r;
  list.prev = &r;
}

bool TimerWheel::firesBefore(const Link* a, const Link* b) {
  const auto& one = *static_cast<const Reactor*>(a);
  const auto& two = *static_cast<const Reactor*>(b);
  if (one.timeMin_ != two.timeMin_) return one.timeMin_ < two.timeMin_;
  return one.order() < two.order();
}

// Merges `from` into `to`, both in order.
void TimerWheel::merge(Link& to, Link& from) {
  Link* at = to.next;
  while (!isEmpty(from)) {
    Link* const first = from.next;
    if (isEmpty(to) || firesBefore(to.prev, first)) {
      to.prev->next = first;
      first->prev = to.prev;
      from.prev->next = &to;
      to.prev = from.prev;
      clear(from);
      return;
    }
    while (firesBefore(at, first)) at = at->next;  // ends: the last one fires after `first`
    from.next = first->next;
    first->next->prev = &from;
    first->prev = at->prev;
    first->next = at;
    at->prev->next = first;
    at->prev = first;
  }
}

void TimerWheel::rearm(Reactor& r, Seconds time) const {
  armed_ += (time != Mox::never ? 1U : 0U);
  armed_ -= (r.timeMin_ != Mox::never ? 1U : 0U);
  r.timeMin_ = time;
  const U64 order = nextOrder_++;
  const U64 place = r.place();
  const Tick tick = tickOf(time);
  if (place < placeNear && tick >= slotStart(place)) {
    r.whereIs(place, order);  // `never` too leaves the timer in its slot, until the cursor comes
    return;
  }
  if (place != placeNone) unfile(r);
  r.whereIs(time != Mox::never ? file(r, tick) : placeNone, order);
}

void TimerWheel::remove(Reactor& r) const {
  if (r.timeMin_ != Mox::never) --armed_;
  if (r.place() == placeNone) return;
  unfile(r);
  r.whereIs(placeNone, r.order());
}

// Returns the place that it found.
U64 TimerWheel::file(Reactor& r, Tick tick) const {
  if (tick <= cursor_) {
    fileSoon(r);
    return placeNear;
  }
  // Farther than the last level reaches: into its last slot, from which it is filed on.
  constexpr U64 reach = (U64{1} << (levels * levelBits)) - 1;
  const U64 distance = std::min(static_cast<U64>(tick - cursor_), reach);
  const U64 level = (63U ^ static_cast<U32>(std::countl_zero(distance))) / levelBits;
  const U64 start = (static_cast<U64>(cursor_) + distance) >> (level * levelBits);
  const U64 slot = level * slotsPerLevel + start % slotsPerLevel;
  firstStart_ = std::min(firstStart_, static_cast<Tick>(start << (level * levelBits)));
  const U32 size = slotSize_[slot]++;
  if (size == 0) {
    occupied_[slot / 64] |= U64{1} << (slot % 64);
    for (Link& chain : slot_[slot]) clear(chain);
  }
  append(slot_[slot][size % chains], r);
  return slot;
}

void TimerWheel::fileSoon(Reactor& r) const {
  if (isEmpty(soon_)) {
    soonInOrder_ = true;
    soonMin_ = r.timeMin_;
  } else if (r.timeMin_ < static_cast<const Reactor*>(soon_.prev)->timeMin_) {
    soonInOrder_ = false;
    soonMin_ = std::min(soonMin_, r.timeMin_);
  }
  append(soon_, r);
}

// Leaves the place in the reactor to be written by the caller, which knows the new one.
void TimerWheel::unfile(Reactor& r) const {
  r.prev->next = r.next;
  r.next->prev = r.prev;
  const U64 place = r.place();
  if (place < placeNear && --slotSize_[place] == 0) {
    occupied_[place / 64] &= ~(U64{1} << (place % 64));
  }
}

// Slots lie ahead of the cursor, so the one at the cursor's own number is a whole round ahead.
TimerWheel::Tick TimerWheel::slotStart(size_t slot) const {
  const size_t shift = levelOf(slot) * levelBits;
  const U64 own = static_cast<U64>(cursor_ >> shift);
  const U64 ahead = (slot - own - 1) % slotsPerLevel + 1;
  return static_cast<Tick>((own + ahead) << shift);
}

// The first occupied slot of a level, from `from` on and around; -1 if none is.
int TimerWheel::firstOccupied(size_t level, size_t from) const {
  const U64* const word = &occupied_[level * wordsPerLevel];
  const size_t first = from / 64;
  const U64 rest = word[first] & (~U64{0} << (from % 64));
  if (rest != 0) return static_cast<int>(first * 64) + std::countr_zero(rest);
  for (size_t i = 1; i <= wordsPerLevel; ++i) {
    const size_t w = (first + i) % wordsPerLevel;
    if (word[w] != 0) return static_cast<int>(w * 64) + std::countr_zero(word[w]);
  }
  return -1;
}

// noStart if every slot is empty.
TimerWheel::Tick TimerWheel::firstSlotStart() const {
  Tick first = noStart;
  for (size_t level = 0; level < levels; ++level) {
    const U64 own = static_cast<U64>(cursor_ >> (level * levelBits));
    const int found = firstOccupied(level, (own + 1) % slotsPerLevel);
    if (found < 0) continue;
    first = std::min(first, slotStart(level * slotsPerLevel + static_cast<size_t>(found)));
  }
  return first;
}

// From slot to occupied slot, however far: a clock that jumps by years costs no more than the
// timers.
void TimerWheel::moveCursor(Tick target, size_t moves) {
  scratch_.clear();
  while (firstStart_ <= target && moves > 0) {
    const Tick start = cursor_ = firstStart_;
    // From the coarsest down. A timer that leaves a slot here is filed before the next round of
    // every level that has a slot starting now, so none comes into a slot that is about to be
    // emptied.
    for (size_t level = levels; level-- > 0 && moves > 0;) {
      const U64 shift = level * levelBits;
      const U64 own = static_cast<U64>(start) >> shift;
      if (own << shift != static_cast<U64>(start)) continue;
      const size_t slot = level * slotsPerLevel + own % slotsPerLevel;
      if (slotSize_[slot] != 0) moves -= emptySlot(slot, target, moves);
    }
    if (moves > 0) firstStart_ = firstSlotStart();
  }
  collected_ += scratch_.size();
  if (firstStart_ > target) {
    cursor_ = target;
    collected_ = 0;
  }
  Link collected;
  clear(collected);
  appendScratch(collected);
  merge(due_, collected);
}

// Takes at most `moves` timers out of the slot; how many it took.
size_t TimerWheel::emptySlot(size_t slot, Tick target, size_t moves) {
  std::array<Link, chains>& chain = slot_[slot];
  std::array<Link*, chains> at;
  for (size_t i = 0; i < chains; ++i) {
    at[i] = chain[i].next;
    prefetch(at[i]);
  }
  const U32 size = slotSize_[slot];
  const U32 taken = static_cast<U32>(std::min<size_t>(size, moves));
  for (U32 open = taken; open > 0;) {
    for (size_t i = 0; i < chains && open > 0; ++i) {
      if (at[i] == &chain[i]) continue;
      Reactor& r = *static_cast<Reactor*>(at[i]);
      at[i] = r.next;
      prefetch(at[i]);
      refile(r, target);
      --open;
    }
  }
  for (size_t i = 0; i < chains; ++i) {
    chain[i].next = at[i];
    at[i]->prev = &chain[i];
  }
  slotSize_[slot] = size - taken;
  if (taken == size) occupied_[slot / 64] &= ~(U64{1} << (slot % 64));
  return taken;
}

// Files a timer by its present time; those that the cursor is about to pass are collected.
void TimerWheel::refile(Reactor& r, Tick target) {
  U64 place = placeNone;
  if (r.timeMin_ != Mox::never) {
    const Tick tick = tickOf(r.timeMin_);
    if (tick > target) {
      place = file(r, tick);
    } else {
      place = placeNear;
      scratch_.push_back({r.timeMin_, r.order(), &r});
    }
  }
  r.whereIs(place, r.order());
}

void TimerWheel::orderSoon() {
  scratch_.clear();
  for (Link* at = soon_.next; at != &soon_; at = at->next) {
    Reactor& r = *static_cast<Reactor*>(at);
    scratch_.push_back({r.timeMin_, r.order(), &r});
  }
  clear(soon_);
  appendScratch(soon_);
}

void TimerWheel::appendScratch(Link& list) {
  if (!std::is_sorted(scratch_.begin(), scratch_.end())) {
    std::sort(scratch_.begin(), scratch_.end());
  }
  for (const Key& key : scratch_) append(list, *key.reactor);
}

}  // namespace Obel
