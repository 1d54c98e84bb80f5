// The platform's names for numbers.
#pragma once

#include <cstdint>
#include <limits>

namespace Mox {

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

// A duration in seconds, or an absolute time in seconds on the activity clock.
using Seconds = double;

// "Never" as a time, "disabled" as a delay.
inline constexpr Seconds never = std::numeric_limits<Seconds>::infinity();

}  // namespace Mox
