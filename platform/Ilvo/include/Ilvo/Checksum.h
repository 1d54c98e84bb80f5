// The Internet checksum (RFC 1071).
//
// Computed with the checksum field zeroed, it is the value for the field (network order); computed
// over a message with its field, it is 0 exactly if the message is correct. An odd length
// counts as if a zero byte followed. Works at any alignment.
//
//   hdr.checksumIs(0);
//   hdr.checksumIs(checksum(pkt.data().first(8)));
#pragma once

#include <bit>
#include <cstddef>
#include <cstring>
#include <span>

#include <Ilvo/Types.h>

namespace Ilvo {

inline U16 checksum(std::span<const U8> bytes) {
  // One's complement sums do not depend on byte order or word size until they are folded (RFC 1071
  // 2 (B) and (C)), so native 32-bit halves are added; 64 bits hold the carries of 16 GB.
  U64 sum = 0;
  const U8* p = bytes.data();
  std::size_t left = bytes.size();
  for (; left >= 8; p += 8, left -= 8) {
    U64 word = 0;
    std::memcpy(&word, p, 8);
    sum += (word & 0xffffffff) + (word >> 32);
  }
  if (left >= 4) {
    U32 word = 0;
    std::memcpy(&word, p, 4);
    sum += word;
    p += 4;
    left -= 4;
  }
  if (left >= 2) {
    U16 word = 0;
    std::memcpy(&word, p, 2);
    sum += word;
    p += 2;
    left -= 2;
  }
  if (left == 1) {
    U16 word = 0;
    std::memcpy(&word, p, 1);
    sum += word;
  }
  sum = (sum & 0xffffffff) + (sum >> 32);
  sum = (sum & 0xffffffff) + (sum >> 32);
  sum = (sum & 0xffff) + (sum >> 16);
  sum = (sum & 0xffff) + (sum >> 16);
  const auto folded = static_cast<U16>(~sum);
  if constexpr (std::endian::native == std::endian::big) return folded;
  return static_cast<U16>(folded << 8 | folded >> 8);
}

}  // namespace Ilvo
