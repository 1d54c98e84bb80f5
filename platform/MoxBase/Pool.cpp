#include <MoxBase/Pool.h>

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <new>
#include <utility>

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
constexpr size_t hugePage = size_t{1} << 21;
constexpr size_t page = 4096;
constexpr size_t spanBytes = size_t{1} << 16;
constexpr size_t spansOfSegment = hugePage / spanBytes;
// Free spans that stay in memory, beside half as many as are in use: demand goes up and down.
constexpr size_t spareSpans = 8;

struct Cell {
  Cell* next;
};

// A part of a segment, for cells of one size. Cells come from those given back, then from the rest
// that never was a cell.
struct Span {
  Cell* free;
  std::byte* rest;
  std::byte* end;
  Span* next;  // in the list of its size, while it has room, or of free spans
  Span* previous;
  U32 used;  // cells
  U32 size;  // their size's index
  bool hasRoom;
  bool returned;  // to the kernel, while it is free
};

// Spans lie side by side at a multiple of a huge page, which their heads begin.
struct Segment {
  std::array<Span, spansOfSegment> spans;
  U32 used;    // spans
  bool small;  // on small pages
};
static_assert(sizeof(Segment) <= page);

std::array<Span*, largest / step> withRoom;  // by size
Span* freeSpans = nullptr;
Span* returnedSpans = nullptr;
size_t freeCount = 0;
size_t usedCount = 0;
bool anySegment = false;
std::mutex mutex;
PoolUse use{};

// Memory on huge pages where the kernel grants them, if that is wanted. The excess that the
// alignment needs is unmapped again.
void* mapAligned(size_t bytes, bool huge) {
  void* mapped =
      mmap(nullptr, bytes + hugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) throw std::bad_alloc();
  auto* begin = static_cast<std::byte*>(mapped);
  const size_t head = (hugePage - reinterpret_cast<size_t>(begin) % hugePage) % hugePage;
  if (head > 0) munmap(begin, head);
  munmap(begin + head + bytes, hugePage - head);
  madvise(begin + head, bytes, huge ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
  return begin + head;
}

size_t wholePages(size_t bytes) { return (bytes + hugePage - 1) / hugePage * hugePage; }

Segment& segmentOf(void* inside) {
  auto* at = static_cast<std::byte*>(inside);
  return *reinterpret_cast<Segment*>(at - reinterpret_cast<size_t>(at) % hugePage);
}

Span& spanOf(void* cell) {
  const size_t number = reinterpret_cast<size_t>(cell) % hugePage / spanBytes;
  return segmentOf(cell).spans[number];
}

// The memory of a span: in the first one, behind the heads.
std::byte* memoryOf(Span& span) {
  Segment& segment = segmentOf(&span);
  const auto number = static_cast<size_t>(&span - segment.spans.data());
  return reinterpret_cast<std::byte*>(&segment) + (number == 0 ? page : number * spanBytes);
}

void link(Span*& list, Span& span) {
  span.previous = nullptr;
  span.next = list;
  if (list != nullptr) list->previous = &span;
  list = &span;
}

void unlink(Span*& list, Span& span) {
  (span.previous != nullptr ? span.previous->next : list) = span.next;
  if (span.next != nullptr) span.next->previous = span.previous;
}

// The first segment does without a huge page: most processes need a part of it.
void newSegment() {
  auto* const segment = new (mapAligned(hugePage, anySegment)) Segment{};
  segment->small = !anySegment;
  anySegment = true;
  for (size_t i = spansOfSegment; i-- > 0;) {
    Span& span = segment->spans[i];
    span.end = reinterpret_cast<std::byte*>(segment) + (i + 1) * spanBytes;
    span.returned = true;  // nothing of it is in memory yet
    link(returnedSpans, span);
  }
}

Span& newSpan(size_t index) {
  if (freeSpans == nullptr && returnedSpans == nullptr) newSegment();
  Span*& from = freeSpans != nullptr ? freeSpans : returnedSpans;
  Span& span = *from;
  unlink(from, span);
  if (!span.returned) --freeCount;
  ++usedCount;
  ++segmentOf(&span).used;
  span.free = nullptr;
  span.rest = memoryOf(span);
  span.size = static_cast<U32>(index);
  span.hasRoom = true;
  span.returned = false;
  link(withRoom[index], span);
  return span;
}

// From a huge page, whose other spans the kernel would else bring back with the next look at it.
void returnToKernel(Span& span) {
  Segment& segment = segmentOf(&span);
  if (!std::exchange(segment.small, true)) madvise(&segment, hugePage, MADV_NOHUGEPAGE);
  std::byte* const memory = memoryOf(span);
  madvise(memory, static_cast<size_t>(span.end - memory), MADV_DONTNEED);
  unlink(freeSpans, span);
  --freeCount;
  span.returned = true;
  link(returnedSpans, span);
}

void segmentDel(Segment& segment) {
  for (Span& span : segment.spans) {
    unlink(span.returned ? returnedSpans : freeSpans, span);
    if (!span.returned) --freeCount;
  }
  munmap(&segment, hugePage);
}

bool mostAreFree() { return freeCount > usedCount / 2 + spareSpans; }

// While many spans are free, each that becomes free takes one more along, or its whole segment.
void spanDel(Span& span) {
  unlink(withRoom[span.size], span);
  --usedCount;
  ++freeCount;
  link(freeSpans, span);
  Segment& segment = segmentOf(&span);
  if (--segment.used == 0 && mostAreFree()) return segmentDel(segment);
  for (int i = 0; i < 2 && mostAreFree(); ++i) returnToKernel(*freeSpans);
}

size_t indexOf(size_t bytes) { return (bytes - 1) / step; }
size_t cellBytes(size_t index) { return (index + 1) * step; }

void* take(size_t wanted) {
  const size_t index = indexOf(wanted);
  const size_t bytes = cellBytes(index);
  use.cells += bytes;
  if (!pooled) return ::operator new(wanted);
  Span& span = withRoom[index] != nullptr ? *withRoom[index] : newSpan(index);
  ++span.used;
  void* taken = span.free;
  if (taken != nullptr) {
    span.free = span.free->next;
  } else {
    taken = span.rest;
    span.rest += bytes;
  }
  if (span.free == nullptr && static_cast<size_t>(span.end - span.rest) < bytes) {
    span.hasRoom = false;
    unlink(withRoom[index], span);
  }
  return taken;
}

void giveBack(void* cell, size_t bytes) {
  use.cells -= cellBytes(indexOf(bytes));
  if (!pooled) {
    ::operator delete(cell);
    return;
  }
  Span& span = spanOf(cell);
  span.free = new (cell) Cell{span.free};
  if (!span.hasRoom) {
    span.hasRoom = true;
    link(withRoom[span.size], span);
  }
  // The last one of its size stays: the next object of that size would take it again.
  if (--span.used == 0 && (span.next != nullptr || span.previous != nullptr)) spanDel(span);
}

}  // namespace

void* poolNew(size_t bytes) {
  if (bytes > largest) return ::operator new(bytes);
  if (!threadSafePtrs()) return take(bytes);
  const std::scoped_lock lock(mutex);
  return take(bytes);
}

void poolDelete(void* cell, size_t bytes) noexcept {
  if (bytes > largest) {
    ::operator delete(cell);
    return;
  }
  if (!threadSafePtrs()) {
    giveBack(cell, bytes);
    return;
  }
  const std::scoped_lock lock(mutex);
  giveBack(cell, bytes);
}

// A small table is one of many.
void* blockNew(size_t bytes) {
  if (bytes <= largest) return poolNew(bytes);
  if (!pooled || bytes < hugePage) return ::operator new(bytes);
  use.mappedBlocks += wholePages(bytes);
  return mapAligned(wholePages(bytes), true);
}

void blockDelete(void* block, size_t bytes) noexcept {
  if (bytes <= largest) return poolDelete(block, bytes);
  if (!pooled || bytes < hugePage) {
    ::operator delete(block);
    return;
  }
  use.mappedBlocks -= wholePages(bytes);
  munmap(block, wholePages(bytes));
}

PoolUse poolUse() {
  PoolUse now = use;
  now.spans = (usedCount + freeCount) * spanBytes;
  return now;
}

}  // namespace Mox
