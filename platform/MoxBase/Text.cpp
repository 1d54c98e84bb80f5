#include <MoxBase/Text.h>

#include <cmath>
#include <cstdint>

namespace Mox::detail {

namespace {
// Within these bounds fixed notation is what people expect: 100000 is not to become "1e+05", which
// the shortest form would make of it.
constexpr double fixedMin = 1e-4;
constexpr double fixedMax = 1e15;
}  // namespace

void appendDouble(std::string& out, double value) {
  if (std::isnan(value)) {
    out += "nan";  // whatever its sign bit
    return;
  }
  const double size = std::fabs(value);
  const bool fixed = size == 0.0 || (size >= fixedMin && size < fixedMax);
  char digits[40];
  char* const end = digits + sizeof digits;
  const auto result = fixed ? std::to_chars(digits, end, value, std::chars_format::fixed)
                            : std::to_chars(digits, end, value);
  out.append(digits, result.ptr);
}

void appendAddress(std::string& out, const void* address) {
  char digits[2 * sizeof address];
  const auto number = reinterpret_cast<std::uintptr_t>(address);
  out += "0x";
  out.append(digits, std::to_chars(digits, digits + sizeof digits, number, 16).ptr);
}

}  // namespace Mox::detail
