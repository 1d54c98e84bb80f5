// For tests: the addresses of a host, a source and a group.
#pragma once

#include <Ilvo/IpAddr.h>

namespace Agent {

inline constexpr Ilvo::IpAddr host(10, 0, 0, 11);
inline constexpr Ilvo::IpAddr sender(10, 0, 0, 50);  // a source of the group
inline constexpr Ilvo::IpAddr group(239, 1, 1, 1);

}  // namespace Agent
