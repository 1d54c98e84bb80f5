// A hashed collection keyed by address, small enough to stand a million times in memory.
//
// An empty one is one null pointer. Open addressing with each key beside its value, so that a
// lookup touches one line of memory most of the time. Order of iteration is unspecified but the
// same for the same history. Members must not be added or removed during an iteration: a walk that
// deletes walks a copy of the keys. A walk in steps (`walk`) survives every change between two
// steps.
//
// The hash multiplies by a secret odd number that the host may draw at random (hashMultiplierIs),
// so that no host on the link can choose addresses that collide.
//
//   HashMap<Ilvo::IpAddr, Ptr<QuerierGroupSm>> groupSm;
//   if (auto* found = groupSm.find(addr)) ...
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <MoxBase/Export.h>
#include <MoxBase/Pool.h>
#include <MoxBase/Text.h>
#include <MoxBase/Types.h>

namespace Mox {

namespace detail {
extern MOX_PUBLIC U64 hashMultiplier;
}

// Before the first collection has members, or not at all; made odd if it is not.
MOX_PUBLIC void hashMultiplierIs(U64 multiplier);

// K: 4 bytes, `value()` gives a U32, explicit construction from U32.
template <class K, class V>
class HashMap {
 public:
  static constexpr const char* valueTypeName = "set";  // of keys, where it maps to a flag

  struct Member {
    K key;
    V& value;
  };

  HashMap() = default;
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  HashMap(HashMap&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  HashMap& operator=(HashMap&& other) noexcept {
    std::swap(block_, other.block_);
    return *this;
  }
  ~HashMap() { clear(); }

  size_t size() const { return block_ == nullptr ? 0 : block_->size; }
  bool empty() const { return size() == 0; }

  V* find(K key) {
    if (block_ == nullptr) return nullptr;
    Slot& slot = slotsOf(*block_)[seek(*block_, key.value())];
    return slot.key != 0 ? &slot.value : nullptr;
  }
  const V* find(K key) const { return const_cast<HashMap*>(this)->find(key); }
  bool contains(K key) const { return find(key) != nullptr; }
  // Starts to fetch the key's place into the cache.
  void prefetch(K key) const {
    if (block_ != nullptr) __builtin_prefetch(&slotsOf(*block_)[home(*block_, key.value())]);
  }

  // Adds the member, or gives the one of that key a new value; true when it was added.
  bool insert(K key, V value) {
    if (V* found = find(key)) {
      *found = std::move(value);
      return false;
    }
    if (block_ == nullptr) {
      block_ = make(firstCapacity);
    } else if ((block_->size + 1) * 4 > capacity(*block_) * 3) {
      rehash(capacity(*block_) * 2);
    }
    Slot& slot = slotsOf(*block_)[seek(*block_, key.value())];
    slot.key = key.value() == 0 ? zeroPresent : key.value();
    slot.value = std::move(value);
    ++block_->size;
    return true;
  }

  // Removes the member of that key; false when there is none.
  bool erase(K key) {
    if (block_ == nullptr) return false;
    Block& b = *block_;
    size_t hole = seek(b, key.value());
    if (!occupied(b, hole)) return false;
    // The value's destructor may use this map: it runs last.
    [[maybe_unused]] const Slot gone = std::exchange(slotsOf(b)[hole], Slot());
    --b.size;
    if (hole < capacity(b)) closeHole(b, hole);
    // A table never shrinks before it is empty: after a walk that deletes, the remaining members
    // lie together, and would be one long run of collisions in a smaller table.
    if (b.size == 0) clear();
    return true;
  }

  void clear() { release(std::exchange(block_, nullptr)); }

  std::vector<K> keys() const {
    std::vector<K> all;
    all.reserve(size());
    for (const auto& member : *this) all.push_back(member.key);
    return all;
  }

  // Calls f(key, value) for the members from a bookmark on, 0 at first, in about `places` places of
  // the table, and returns the next bookmark, or 0 at the end. Members may come and go between two
  // calls, but not within one: each that is there all the time is met once.
  template <class F>
  U64 walk(U64 bookmark, size_t places, F f) const {
    if (block_ == nullptr) return 0;
    // A bookmark is a hash: it means the same in a table of any size, and members lie behind the
    // place of their hash, without a free slot in between.
    Block& b = *block_;
    const int shift = shiftOf(b);
    const size_t first = static_cast<size_t>(bookmark >> shift);
    const size_t last = std::min(capacity(b), first + std::max<size_t>(places, 1));
    const auto use = [&](size_t at) {
      const U64 hash = slotsOf(b)[at].key * detail::hashMultiplier;
      const size_t place = static_cast<size_t>(hash >> shift);
      if (hash >= bookmark && place >= first && place < last) f(keyAt(at), valueAt(at));
    };
    if (bookmark == 0 && occupied(b, capacity(b))) f(K(0u), valueAt(capacity(b)));
    size_t at = first;
    for (; at < last; ++at) {
      if (occupied(b, at)) use(at);
    }
    for (at &= b.mask; at != first && occupied(b, at); at = (at + 1) & b.mask) use(at);
    return last == capacity(b) ? 0 : U64{last} << shift;
  }

  template <class Map, class M>
  class Iter {
   public:
    Iter(Map* map, size_t at) : map_(map), at_(at) { skip(); }
    M operator*() const { return {map_->keyAt(at_), map_->valueAt(at_)}; }
    Iter& operator++() {
      ++at_;
      skip();
      return *this;
    }
    friend bool operator==(const Iter& a, const Iter& b) { return a.at_ == b.at_; }

   private:
    void skip() {
      while (at_ < map_->slots() && !occupied(*map_->block_, at_)) ++at_;
    }
    Map* map_;
    size_t at_;
  };
  struct ConstMember {
    K key;
    const V& value;
  };
  using iterator = Iter<HashMap, Member>;
  using const_iterator = Iter<const HashMap, ConstMember>;
  iterator begin() { return {this, 0}; }
  iterator end() { return {this, slots()}; }
  const_iterator begin() const { return {this, 0}; }
  const_iterator end() const { return {this, slots()}; }

 private:
  // One allocation: this header and the slots. A key of 0 marks a free slot, so the member of key 0
  // has a slot of its own behind the others.
  struct Block {
    U32 mask;
    U32 size;
  };
  struct Slot {
    V value{};
    U32 key = 0;
  };
  static constexpr U32 zeroPresent = 1;
  static constexpr size_t firstCapacity = 2;
  static constexpr size_t slotsAt =
      (sizeof(Block) + alignof(Slot) - 1) / alignof(Slot) * alignof(Slot);

  static size_t capacity(const Block& b) { return size_t{b.mask} + 1; }
  static Slot* slotsOf(Block& b) {
    return std::launder(reinterpret_cast<Slot*>(reinterpret_cast<std::byte*>(&b) + slotsAt));
  }
  static bool occupied(Block& b, size_t at) { return slotsOf(b)[at].key != 0; }
  static int shiftOf(const Block& b) { return 64 - std::countr_one(b.mask); }
  static size_t home(const Block& b, U32 key) {
    return static_cast<size_t>((key * detail::hashMultiplier) >> shiftOf(b));
  }

  size_t slots() const { return block_ == nullptr ? 0 : capacity(*block_) + 1; }
  K keyAt(size_t at) const { return K(at == capacity(*block_) ? 0u : slotsOf(*block_)[at].key); }
  V& valueAt(size_t at) const { return slotsOf(*block_)[at].value; }

  // The slot of the key, or the free slot where it belongs.
  static size_t seek(Block& b, U32 key) {
    if (key == 0) return capacity(b);
    const Slot* slots = slotsOf(b);
    size_t at = home(b, key);
    while (slots[at].key != key && slots[at].key != 0) at = (at + 1) & b.mask;
    return at;
  }

  // Moves back the members that were pushed past the hole, so that no search ends there too early.
  static void closeHole(Block& b, size_t hole) {
    Slot* slots = slotsOf(b);
    for (size_t at = (hole + 1) & b.mask; slots[at].key != 0; at = (at + 1) & b.mask) {
      const size_t pushed = (at - home(b, slots[at].key)) & b.mask;
      if (pushed < ((at - hole) & b.mask)) continue;
      slots[hole] = std::exchange(slots[at], Slot());
      hole = at;
    }
  }

  static Block* make(size_t capacity) {
    void* memory = blockNew(slotsAt + (capacity + 1) * sizeof(Slot));
    Block* b = new (memory) Block{static_cast<U32>(capacity - 1), 0};
    std::uninitialized_value_construct_n(slotsOf(*b), capacity + 1);
    return b;
  }

  static void release(Block* b) {
    if (b == nullptr) return;
    const size_t slots = capacity(*b) + 1;
    std::destroy_n(slotsOf(*b), slots);
    blockDelete(b, slotsAt + slots * sizeof(Slot));
  }

  void rehash(size_t newCapacity) {
    Block* old = std::exchange(block_, make(newCapacity));
    for (size_t at = 0; at <= capacity(*old); ++at) {
      Slot& from = slotsOf(*old)[at];
      if (from.key == 0) continue;
      const size_t to = at == capacity(*old) ? newCapacity : seek(*block_, from.key);
      slotsOf(*block_)[to] = std::move(from);
    }
    block_->size = old->size;
    release(old);
  }

  Block* block_ = nullptr;
};

// A set of keys is shown as a list in their order.
template <class K>
std::string shownValue(const HashMap<K, bool>& set) {
  std::vector<K> keys = set.keys();
  std::sort(keys.begin(), keys.end(), [](K a, K b) { return a.value() < b.value(); });
  std::string text;
  for (const K key : keys) {
    if (!text.empty()) text += ", ";
    appendText(text, key);
  }
  return text;
}

}  // namespace Mox
