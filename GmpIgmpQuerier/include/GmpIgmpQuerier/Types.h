// The names that this system takes from the platform.
#pragma once

#include <Ilvo/IpAddr.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Gmp::Igmp {

using Ilvo::IpAddr;
using Mox::makePtr;
using Mox::never;
using Mox::Ptr;
using Mox::Seconds;
using Mox::U16;
using Mox::U32;
using Mox::U64;
using Mox::U8;

}  // namespace Gmp::Igmp
