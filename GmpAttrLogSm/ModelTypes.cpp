// What the congestion monitor makes known to the type registry when it is loaded.
#include <Mox/ModelTypes.h>

#include <GmpAttrLogSm/GmpAttrLogSm.h>

namespace Gmp::Igmp {

namespace {
[[gnu::init_priority(1003)]] const Mox::ModelTypes types("GmpAttrLogSm",
                                                         {Mox::objectType<GmpAttrLogSm>()});
}

}  // namespace Gmp::Igmp
