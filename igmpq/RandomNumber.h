// Numbers of the kernel's random generator.
#pragma once

#include <MoxBase/Types.h>

namespace Igmpq {

// Throws std::system_error.
Mox::U64 randomNumber();

}  // namespace Igmpq
