// The memory that this process has allocated, for benchmarks of memory.
#pragma once

#include <malloc.h>

#include <cstddef>

#include <MoxBase/Pool.h>

namespace Bench {

// The allocator's, with the pool's cells in place of its chunks, which other benchmarks may have
// filled.
inline size_t heapBytes() {
  const auto info = mallinfo2();
  const Mox::PoolUse pool = Mox::poolUse();
  return info.uordblks + info.hblkhd - pool.heapChunks + pool.cells + pool.mappedBlocks;
}

}  // namespace Bench
