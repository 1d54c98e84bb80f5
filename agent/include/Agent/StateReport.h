// The state of interfaces, whole or a part of it, as tables for people or as JSON for programs:
// role and timers, counters, groups and their sources, settings.
//
//   printState(stdout, StatePart::everything, views, Mox::now(), Format::text);
#pragma once

#include <cstdio>
#include <span>
#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Ilvo/IpAddr.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Agent {

enum class Format { text, json };

enum class StatePart { everything, interfaces, groups, sources, counters, config };

// What is shown of one interface. The times of a querier that does not run say nothing and are left
// out.
struct InterfaceView {
  std::string name;
  Ilvo::IpAddr address;
  Mox::Ptr<const Gmp::Igmp::QuerierConfig> config;
  Mox::Ptr<const Gmp::Igmp::QuerierStatus> status;
  bool running = true;
  bool isCopy = false;  // of another process's state, which keeps address and running to itself
  Mox::Seconds electedTime = 0.0;  // since when the elected querier is; 0 when that is not known
};

// JSON of everything is one line with "event": "state", so that it may stand among events; of a
// part an array of objects. Keys may be added, never renamed.
void printState(std::FILE* out, StatePart part, std::span<const InterfaceView> interfaces,
                Mox::Seconds now, Format format);

// The same, as a string.
std::string stateText(StatePart part, std::span<const InterfaceView> interfaces, Mox::Seconds now);
std::string stateJson(StatePart part, std::span<const InterfaceView> interfaces, Mox::Seconds now);

// A duration for people: "3.2s", "42s", "4m10s", "1h02m", "3d04h"; "-" for none.
std::string durationText(Mox::Seconds seconds);

}  // namespace Agent
