// The memory that this process has allocated, with and without sanitizers.
#pragma once

#include <malloc.h>

#include <cstddef>

#include <MoxBase/Pool.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/allocator_interface.h>
#define QUERIER_HEAP_OF_SANITIZER
#endif
#endif

namespace Fuzz {

// The allocator's, and what is in use of the pool, whose spans are not the allocator's.
inline std::size_t heapBytes() {
#ifdef QUERIER_HEAP_OF_SANITIZER
  const std::size_t heap = __sanitizer_get_current_allocated_bytes();
#else
  const auto info = mallinfo2();
  const std::size_t heap = info.uordblks + info.hblkhd;
#endif
  const Mox::PoolUse pool = Mox::poolUse();
  return heap + pool.cells + pool.mappedBlocks;
}

}  // namespace Fuzz
