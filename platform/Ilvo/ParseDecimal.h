// Reading the numbers of address texts.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace Ilvo {

// Takes a decimal number of at most `max` (below 1000) from the front of the text. A leading zero
// is allowed for "0" only.
inline std::optional<unsigned> takeDecimal(std::string_view& text, unsigned max) {
  unsigned value = 0;
  std::size_t digits = 0;
  while (digits < text.size() && digits < 3 && text[digits] >= '0' && text[digits] <= '9') {
    value = value * 10 + static_cast<unsigned>(text[digits] - '0');
    ++digits;
  }
  if (digits == 0 || value > max) return std::nullopt;
  if (digits > 1 && text.front() == '0') return std::nullopt;
  text.remove_prefix(digits);
  return value;
}

}  // namespace Ilvo
