// A value of any attribute, for access by name: what tools read and write without knowing the type.
#pragma once

#include <string>
#include <variant>

#include <Mox/Types.h>

namespace Mox {

// Nothing, flag, whole number, seconds, or text. Enumerations travel as their number or name.
using Value = std::variant<std::monostate, bool, U64, double, std::string>;

}  // namespace Mox
