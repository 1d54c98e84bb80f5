// Memory for counted objects, which may be a million of a few sizes.
//
// Sizes are rounded up to 16 bytes. Cells of one size lie in spans of 64 KiB, and spans in segments
// of a huge page, since objects in random order otherwise miss the cache of page addresses each
// time. A span without objects serves any size; while most spans are free, their memory goes back
// to the kernel. Under AddressSanitizer every object is an allocation of its own, so that a use
// after the end is seen.
#pragma once

#include <cstddef>

#include <MoxBase/Export.h>

namespace Mox {

MOX_PUBLIC void* poolNew(size_t bytes);
MOX_PUBLIC void poolDelete(void* cell, size_t bytes) noexcept;

// A block of any size, for a table: on huge pages when it is large.
MOX_PUBLIC void* blockNew(size_t bytes);
MOX_PUBLIC void blockDelete(void* block, size_t bytes) noexcept;

// In bytes: cells in use, blocks outside the heap, and the spans that the kernel has not got back.
struct PoolUse {
  size_t cells;
  size_t mappedBlocks;
  size_t spans;
};
MOX_PUBLIC PoolUse poolUse();

}  // namespace Mox
