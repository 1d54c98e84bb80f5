// The pool as an allocator of the standard library, for trees that may hold a million keys. The
// heap would keep such nodes when they are freed, and put all of them in order at some later call.
//
//   std::map<U32, bool, std::less<>, PoolAllocator<std::pair<const U32, bool>>> keys;
#pragma once

#include <cstddef>

#include <MoxBase/Pool.h>

namespace Mox {

template <class T>
class PoolAllocator {
 public:
  using value_type = T;

  PoolAllocator() = default;
  template <class U>
  PoolAllocator(const PoolAllocator<U>&) {}  // NOLINT(google-explicit-constructor)

  T* allocate(size_t count) { return static_cast<T*>(poolNew(count * sizeof(T))); }
  void deallocate(T* cells, size_t count) noexcept { poolDelete(cells, count * sizeof(T)); }

  friend bool operator==(PoolAllocator, PoolAllocator) { return true; }
};

}  // namespace Mox
