#include <Brevlog/Ring.h>

#include <bit>
#include <utility>

#include <MoxBase/Fatal.h>

namespace Brevlog {

namespace {
constexpr size_t minCapacity = 64;

size_t checkedCapacity(size_t capacity) {
  Mox::fatalUnless(std::has_single_bit(capacity) && capacity >= minCapacity, "Brevlog/Ring.h",
                   "capacity is a power of two, at least 64");
  return capacity;
}
}  // namespace

// Clearing the memory also touches its pages, which no trace call then has to wait for.
Ring::Ring(size_t capacity)
    : mask_(checkedCapacity(capacity) - 1),
      memory_(std::make_unique<Mox::U64[]>(capacity / sizeof(Mox::U64))) {}

void Ring::clear() {
  while (tail_ != head_) overwriteOldest();
}

std::byte* Ring::claim(size_t bytes) {
  if (bytes > capacity()) {
    ++refused_;
    return nullptr;
  }
  if (const size_t toEnd = bytesToEnd(head_); bytes > toEnd) {
    makeRoom(toEnd);
    const Formatter none = nullptr;
    std::memcpy(at(head_), &none, sizeof none);
    head_ += toEnd;
  }
  makeRoom(bytes);
  std::byte* const place = at(head_);
  head_ += bytes;
  ++recorded_;
  return place;
}

void Ring::makeRoom(size_t bytes) {
  while (head_ + bytes - tail_ > capacity()) overwriteOldest();
}

void Ring::overwriteOldest() {
  const Header header = headerAt(tail_);
  if (header.formatter == nullptr) {
    tail_ += bytesToEnd(tail_);
  } else {
    tail_ += header.bytes;
    ++overwritten_;
  }
}

// Where a null stands near the end of the memory, no whole header does: the rest is left empty.
Ring::Header Ring::headerAt(Mox::U64 position) const {
  Header header{};
  std::memcpy(&header.formatter, at(position), sizeof header.formatter);
  if (header.formatter != nullptr) std::memcpy(&header, at(position), sizeof header);
  return header;
}

Mox::U64 Ring::Reader::position() {
  skipOverwritten();
  return passed_;
}

Mox::U64 Ring::Reader::takeLost() {
  skipOverwritten();
  return std::exchange(lost_, 0);
}

void Ring::Reader::skipOverwritten() {
  if (at_ >= ring_.tail_) return;
  lost_ += ring_.overwritten_ - passed_;
  at_ = ring_.tail_;
  passed_ = ring_.overwritten_;
}

}  // namespace Brevlog
