// Memory for counted objects, which may be a million of a few sizes.
//
// Sizes are rounded up to 16 bytes and each has a list of free cells; cells come from chunks that
// grow with the demand and ask the kernel for huge pages, since objects in random order otherwise
// miss the cache of page addresses each time. Chunks stay for the life of the process. Under
// AddressSanitizer every object is an allocation of its own, so that a use after the end is seen.
#pragma once

#include <cstddef>

#include <MoxBase/Export.h>

namespace Mox {

MOX_PUBLIC void* poolNew(size_t bytes);
MOX_PUBLIC void poolDelete(void* cell, size_t bytes) noexcept;

// A block of any size, for a table: on huge pages when it is large.
MOX_PUBLIC void* blockNew(size_t bytes);
MOX_PUBLIC void blockDelete(void* block, size_t bytes) noexcept;

// Memory in use, in bytes: cells, blocks outside the heap, and chunks of cells on the heap.
struct PoolUse {
  size_t cells;
  size_t mappedBlocks;
  size_t heapChunks;
};
MOX_PUBLIC PoolUse poolUse();

}  // namespace Mox
