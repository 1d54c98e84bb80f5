// A value of any attribute, for tools that read and write attributes without knowing their types.
#pragma once

#include <string>
#include <variant>

#include <MoxBase/Types.h>

namespace Mox {

// Nothing, flag, whole number, seconds, text, or a number that may be negative. Enumerations travel
// as their number or name.
using Value = std::variant<std::monostate, bool, U64, double, std::string, S64>;

}  // namespace Mox
