// The state of interfaces, whole or a part of it, as tables for people or as JSON for programs:
// role and timers, counters, groups and their sources, settings.
//
//   printState(stdout, StatePart::everything, views, Mox::now(), Format::text);
#pragma once

#include <cstdio>
#include <span>
#include <string>

#include <MoxBase/Types.h>
#include <Report/InterfaceView.h>
#include <Text/Format.h>

namespace Agent {

enum class StatePart { everything, interfaces, groups, sources, counters, config };

// As JSON, everything is one line with "event": "state", so that it can be mixed with events, and a
// part is an array of objects. Keys may be added, never renamed.
void printState(std::FILE* out, StatePart part, std::span<const InterfaceView> interfaces,
                Mox::Seconds now, Format format);

// The same, as a string.
std::string stateText(StatePart part, std::span<const InterfaceView> interfaces, Mox::Seconds now);
std::string stateJson(StatePart part, std::span<const InterfaceView> interfaces, Mox::Seconds now);

}  // namespace Agent
