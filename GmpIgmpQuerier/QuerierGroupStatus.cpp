#include <GmpIgmpQuerier/QuerierGroupStatus.h>

namespace Gmp::Igmp {

QuerierGroupStatus::~QuerierGroupStatus() { sourceDelAll(); }

void QuerierGroupStatus::sourceDelAll() {
  for (const IpAddr addr : source_.keys()) sourceDel(addr);
}

}  // namespace Gmp::Igmp
