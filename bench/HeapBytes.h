// The memory that this process has allocated, for benchmarks of memory.
#pragma once

#include <malloc.h>

#include <cstddef>

#include <MoxBase/Pool.h>

namespace Bench {

// The allocator's, and what is in use of the pool, whose spans are not the allocator's.
inline size_t heapBytes() {
  const auto info = mallinfo2();
  const Mox::PoolUse pool = Mox::poolUse();
  return info.uordblks + info.hblkhd + pool.cells + pool.mappedBlocks;
}

}  // namespace Bench
