// What the two forms of the state report ask of the status alike.
#pragma once

#include <algorithm>
#include <vector>

#include <Agent/StateReport.h>
#include <Mox/AttrTable.h>

namespace Agent {

// Calls f(name, value) for each counter of the attribute table.
template <class F>
void forEachCounter(const Gmp::Igmp::QuerierStatus& status, F f) {
  Gmp::Igmp::QuerierStatus::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (std::remove_cvref_t<decltype(row)>::kind == Mox::AttrKind::counter) {
      f(row.name, Mox::U64{status.*row.member});
    }
  });
}

// Until an absolute time; `never` for one that is not set, or when nobody waits for it.
inline Mox::Seconds timeLeft(const InterfaceView& view, Mox::Seconds expiry, Mox::Seconds now) {
  if (!view.running || expiry == 0.0) return Mox::never;
  return std::max(expiry - now, 0.0);
}

// In address order: the collection itself has none.
inline std::vector<Mox::Ptr<const Gmp::Igmp::QuerierSourceStatus>> sourcesOf(
    const Gmp::Igmp::QuerierGroupStatus& group) {
  std::vector<Ilvo::IpAddr> keys = group.source().keys();
  std::sort(keys.begin(), keys.end());
  std::vector<Mox::Ptr<const Gmp::Igmp::QuerierSourceStatus>> sources;
  sources.reserve(keys.size());
  for (const Ilvo::IpAddr addr : keys) sources.emplace_back(group.source(addr));
  return sources;
}

inline bool isExcluded(const Gmp::Igmp::QuerierGroupStatus& group,
                       const Gmp::Igmp::QuerierSourceStatus& source) {
  return group.filterMode() == Gmp::Igmp::filterModeExclude && source.expired();
}

}  // namespace Agent
