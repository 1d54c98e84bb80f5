// The metrics of an interface and of its groups, as a table: a family each, which is written for
// all interfaces before the next one.
#pragma once

#include <array>
#include <span>
#include <string>

#include <GmpIgmpQuerier/QuerierStatus.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceView.h>

#include "MetricsText.h"

namespace Agent {

// Of one interface. Counting means a walk over its groups.
struct GroupCounts {
  void add(const Gmp::Igmp::QuerierGroupStatus& group);
  Mox::U64 groups() const { return versions[0] + versions[1] + versions[2]; }

  std::array<Mox::U64, 3> versions = {};  // groups whose oldest host has version 1, 2, 3
  Mox::U64 sources = 0;
};

struct MeasuredInterface {
  InterfaceView view;
  std::string label;  // its name as UTF-8
  GroupCounts counts = {};
};

struct InterfaceMetric {
  Metric metric;
  void (*add)(MetricsText& text, const MeasuredInterface& interface, Mox::Seconds now);
};
std::span<const InterfaceMetric> interfaceMetrics();

struct GroupMetric {
  Metric metric;
  void (*add)(MetricsText& text, const std::string& interface,
              const Gmp::Igmp::QuerierGroupStatus& group, Mox::Seconds now);
};
std::span<const GroupMetric> groupMetrics();

}  // namespace Agent
