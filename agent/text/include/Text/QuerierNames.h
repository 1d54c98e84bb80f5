// The names of enumerators in events and reports.
#pragma once

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/QuerierStatus.h>

namespace Agent {

inline const char* roleName(Gmp::Igmp::QuerierStatus::QuerierState state) {
  using Status = Gmp::Igmp::QuerierStatus;
  switch (state) {
    case Status::querierStateInitial: return "initial";
    case Status::querierStateQuerier: return "querier";
    case Status::querierStateNonQuerier: return "nonQuerier";
  }
  return "unknown";
}

inline const char* filterModeName(Gmp::Igmp::IgmpFilterMode mode) {
  return mode == Gmp::Igmp::filterModeInclude ? "include" : "exclude";
}

}  // namespace Agent
