#include <MoxBase/Pool.h>

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <new>

#include <MoxBase/Ptr.h>

namespace Mox {

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool pooled = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool pooled = false;
#else
constexpr bool pooled = true;
#endif
#else
constexpr bool pooled = true;
#endif

constexpr size_t step = 16;
constexpr size_t largest = 512;
constexpr size_t firstChunk = size_t{1} << 13;
constexpr size_t hugePage = size_t{1} << 21;
constexpr size_t lastChunk = hugePage;

struct Cell {
  Cell* next;
};

// The cells of one size: those given back, and the rest of the newest chunk.
struct Size {
  Cell* free = nullptr;
  std::byte* rest = nullptr;
  std::byte* end = nullptr;
  size_t chunk = firstChunk;
};

std::array<Size, largest / step> sizes;
std::mutex mutex;
PoolUse use{};

// Memory on huge pages where the kernel grants them. The excess that the alignment needs is
// unmapped again.
void* mapHuge(size_t bytes) {
  void* mapped =
      mmap(nullptr, bytes + hugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) throw std::bad_alloc();
  auto* begin = static_cast<std::byte*>(mapped);
  const size_t head = (hugePage - reinterpret_cast<size_t>(begin) % hugePage) % hugePage;
  if (head > 0) munmap(begin, head);
  munmap(begin + head + bytes, hugePage - head);
  madvise(begin + head, bytes, MADV_HUGEPAGE);
  return begin + head;
}

size_t wholePages(size_t bytes) { return (bytes + hugePage - 1) / hugePage * hugePage; }

void newChunk(Size& size) {
  const bool huge = size.chunk == hugePage;
  size.rest = static_cast<std::byte*>(huge ? mapHuge(hugePage) : ::operator new(size.chunk));
  size.end = size.rest + size.chunk;
  use.heapChunks += huge ? 0 : size.chunk;
  size.chunk = std::min(size.chunk * 2, lastChunk);
}

void* take(size_t index) {
  Size& size = sizes[index];
  use.cells += (index + 1) * step;
  if (Cell* cell = size.free) {
    size.free = cell->next;
    return cell;
  }
  const size_t bytes = (index + 1) * step;
  if (size.rest == nullptr || static_cast<size_t>(size.end - size.rest) < bytes) newChunk(size);
  void* cell = size.rest;
  size.rest += bytes;
  return cell;
}

void giveBack(size_t index, void* cell) {
  use.cells -= (index + 1) * step;
  sizes[index].free = new (cell) Cell{sizes[index].free};
}

size_t indexOf(size_t bytes) { return (bytes - 1) / step; }

}  // namespace

void* poolNew(size_t bytes) {
  if (!pooled || bytes > largest) return ::operator new(bytes);
  const size_t index = indexOf(bytes);
  if (!threadSafePtrs()) return take(index);
  const std::scoped_lock lock(mutex);
  return take(index);
}

void poolDelete(void* cell, size_t bytes) noexcept {
  if (!pooled || bytes > largest) {
    ::operator delete(cell);
    return;
  }
  const size_t index = indexOf(bytes);
  if (!threadSafePtrs()) {
    giveBack(index, cell);
    return;
  }
  const std::scoped_lock lock(mutex);
  giveBack(index, cell);
}

void* blockNew(size_t bytes) {
  if (!pooled || bytes < hugePage) return ::operator new(bytes);
  use.mappedBlocks += wholePages(bytes);
  return mapHuge(wholePages(bytes));
}

void blockDelete(void* block, size_t bytes) noexcept {
  if (!pooled || bytes < hugePage) {
    ::operator delete(block);
    return;
  }
  use.mappedBlocks -= wholePages(bytes);
  munmap(block, wholePages(bytes));
}

PoolUse poolUse() { return use; }

}  // namespace Mox
