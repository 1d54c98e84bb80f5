#include <Mox/HashMap.h>

namespace Mox {

namespace detail {
U64 hashMultiplier = 0x9e3779b97f4a7c15u;
}

void hashMultiplierIs(U64 multiplier) { detail::hashMultiplier = multiplier | 1; }

}  // namespace Mox
