// The state of interfaces, whole or a part of it, as tables for people or as JSON for programs:
// role and timers, counters, groups and their sources.
//
//   printState(stdout, StatePart::everything, views, Mox::now(), Format::text);
#pragma once

#include <cstdio>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceView.h>
#include <Text/Format.h>

namespace Agent {

struct InterfaceRange;

enum class StatePart { everything, interfaces, groups, sources, counters };

// As JSON, everything is one line with "event": "state", so that it can be mixed with events, and a
// part is an array of objects. Keys may be added, never renamed.
void printState(std::FILE* out, StatePart part, std::span<const InterfaceView> interfaces,
                Mox::Seconds now, Format format);

// Everything in parts, each made within milliseconds, so that neither a million groups nor a
// thousand interfaces keep a loop from packets: the groups of a part are those that are there when
// it is made. As JSON, a part is a line of its own: those after the first are "continued", and all
// but the last have "more". Each interface has its role, timers and counters once; in the lines
// after that it has nothing but groups.
//
//   StateParts parts(views, Mox::now(), Format::text);
//   for (std::string part = parts.next(); !part.empty(); part = parts.next()) write(part);
class StateParts {
 public:
  struct PartSize {
    // Of groups and sources; about as many, if a group has many sources.
    size_t rows = 500;
    size_t interfaces = 50;
  };

  StateParts(std::vector<InterfaceView> interfaces, Mox::Seconds now, Format format)
      : StateParts(std::move(interfaces), now, format, PartSize()) {}
  StateParts(std::vector<InterfaceView> interfaces, Mox::Seconds now, Format format, PartSize size);

  // Whole lines; empty at the end.
  std::string next();

 private:
  std::string nextText();
  std::string nextJson();
  InterfaceRange rangeFrom(size_t& done) const;
  void appendGroups(std::string& text);

  const std::vector<InterfaceView> interfaces_;
  const Mox::Seconds now_;
  const Format format_;
  const PartSize size_;
  bool begun_ = false;
  bool ended_ = false;
  size_t described_ = 0;  // interfaces whose role and timers were written
  size_t counted_ = 0;    // those whose counters were
  size_t interface_ = 0;  // of the next group
  Ilvo::IpAddr group_;
  std::vector<size_t> interfaceWidths_;
  std::vector<size_t> widths_;  // of the groups
};

// The same, as a string.
std::string stateText(StatePart part, std::span<const InterfaceView> interfaces, Mox::Seconds now);
std::string stateJson(StatePart part, std::span<const InterfaceView> interfaces, Mox::Seconds now);

}  // namespace Agent
