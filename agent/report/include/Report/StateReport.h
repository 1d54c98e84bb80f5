// The state of interfaces, whole or a part of it, as tables for people or as JSON for programs:
// role and timers, counters, groups and their sources.
//
//   printState(stdout, StatePart::everything, views, Mox::now(), Format::text);
#pragma once

#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceView.h>
#include <Text/Format.h>

namespace Agent {

enum class StatePart { everything, interfaces, groups, sources, counters };

// As JSON, everything is one line with "event": "state", so that it can be mixed with events, and a
// part is an array of objects. Keys may be added, never renamed.
void printState(std::FILE* out, StatePart part, std::span<const InterfaceView> interfaces,
                Mox::Seconds now, Format format);

// Everything in parts, each made within milliseconds, so that a million groups do not keep a loop
// from packets: the groups of a part are those that are there when it is made. As JSON, a part is a
// line of its own: those after the first are "continued" and have nothing but groups, and all but
// the last have "more".
//
//   StateParts parts(views, Mox::now(), Format::text);
//   for (std::string part = parts.next(); !part.empty(); part = parts.next()) write(part);
class StateParts {
 public:
  // Of groups and sources; about as many, if a group has many sources.
  static constexpr size_t rowsOfPart = 500;

  StateParts(std::vector<InterfaceView> interfaces, Mox::Seconds now, Format format,
             size_t rows = rowsOfPart);

  // Whole lines; empty at the end.
  std::string next();

 private:
  std::string nextText();
  std::string nextJson();

  const std::vector<InterfaceView> interfaces_;
  const Mox::Seconds now_;
  const Format format_;
  const size_t rows_;
  bool begun_ = false;
  bool ended_ = false;
  size_t interface_ = 0;  // where the next part begins
  Ilvo::IpAddr group_;
  std::vector<size_t> widths_;
};

// The same, as a string.
std::string stateText(StatePart part, std::span<const InterfaceView> interfaces, Mox::Seconds now);
std::string stateJson(StatePart part, std::span<const InterfaceView> interfaces, Mox::Seconds now);

}  // namespace Agent
