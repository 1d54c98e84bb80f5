// The code in which queries carry times: one byte, exact below 128 units, then four significant
// bits and an exponent (RFC 3376 4.1.1 and 4.1.7). The unit is a tenth of a second for the maximum
// response code and a second for the querier's query interval code.
#pragma once

#include <bit>

#include <Ilvo/Types.h>

namespace Ilvo {

constexpr unsigned igmpCodeDecode(U8 code) {
  if (code < 128) return code;
  const unsigned mantissa = code & 0x0fU;
  const unsigned exponent = code >> 4 & 0x07U;
  return (mantissa | 0x10U) << (exponent + 3);
}

inline constexpr unsigned igmpCodeMax = igmpCodeDecode(0xff);

// The largest code of at most `units`: a time without an exact code must not become longer on the
// wire than the querier itself waits. Negative and NaN give 0.
constexpr U8 igmpCodeEncode(double units) {
  if (!(units > 0.0)) return 0;
  if (units >= igmpCodeMax) return 0xff;
  const auto value = static_cast<unsigned>(units);
  if (value < 128) return static_cast<U8>(value);
  const auto exponent = static_cast<unsigned>(std::bit_width(value)) - 8;
  const unsigned mantissa = value >> (exponent + 3) & 0x0fU;
  return static_cast<U8>(0x80U | exponent << 4 | mantissa);
}

}  // namespace Ilvo
