#include <GmpIgmpQuerier/QuerierConfig.h>

namespace Gmp::Igmp {

Ptr<QuerierConfig> querierConfigFactory(Mox::Name name) { return makePtr<QuerierConfig>(name); }

}  // namespace Gmp::Igmp
