// The input of a fuzz target, read from the front in parts. Behind its end everything is zero and
// empty, so that no input is too short.
//
//   Bytes input(data, size);
//   const U8 length = input.u8();
//   while (!input.empty()) receive(input.take(length));
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include <MoxBase/Types.h>

namespace Fuzz {

class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool empty() const { return rest_.empty(); }
  Mox::U8 u8() {
    const auto one = take(1);
    return one.empty() ? Mox::U8{0} : one[0];
  }
  // The next n, or as many as there are.
  std::span<const Mox::U8> take(std::size_t n) {
    const auto taken = rest_.first(std::min(n, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

 private:
  std::span<const Mox::U8> rest_;
};

}  // namespace Fuzz
