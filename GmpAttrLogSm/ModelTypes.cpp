// Registers the congestion monitor with the type registry when its library is loaded. Its trace
// handle is made on first use.
#include <Mox/ModelTypes.h>

#include <GmpAttrLogSm/GmpAttrLogSm.h>

namespace Gmp::Igmp {

namespace {
[[gnu::init_priority(1003)]] const Mox::ModelTypes types("GmpAttrLogSm",
                                                         {Mox::objectType<GmpAttrLogSm>()});
}

}  // namespace Gmp::Igmp
