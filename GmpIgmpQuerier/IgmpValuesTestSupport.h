// The addresses in the queries, records and reports that the tests of values make.
#pragma once

#include <GmpIgmpQuerier/Types.h>

namespace Gmp::Igmp {

constexpr IpAddr addrA(10, 0, 0, 1);
constexpr IpAddr addrB(10, 0, 0, 2);
constexpr IpAddr addrGroup(239, 1, 1, 1);

}  // namespace Gmp::Igmp
