// The platform's names for numbers, in this namespace.
#pragma once

#include <MoxBase/Types.h>

namespace Ilvo {

using Mox::U16;
using Mox::U32;
using Mox::U64;
using Mox::U8;

}  // namespace Ilvo
