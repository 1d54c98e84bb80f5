// The enumerations of the state model, with their numbers, names and text forms.
//
// The numbers are part of the design: they travel between processes. Each enumeration has the same
// functions, all derived from its one list: XInstance(number), XInstance(name), stringValue(x),
// valueToStrep(x), operator<<, sequenceToValue(value, x). An unknown number or name is a
// Mox::RangeError; an unknown number still prints.
#pragma once

#include <array>
#include <ostream>
#include <string>
#include <string_view>

#include <GmpIgmpQuerier/Types.h>
#include <Mox/Enumeration.h>

namespace Gmp::Igmp {

// Protocol version of a querier, of a received query, or of a group's oldest present host (RFC 3376
// 7). The value is the version's number, and is compared and printed as such.
enum IgmpVersion : U32 {
  igmpVersionUnknown = 0,
  igmpVersion1 = 1,
  igmpVersion2 = 2,
  igmpVersion3 = 3,
};

constexpr const char* enumerationName(IgmpVersion) { return "Gmp::Igmp::IgmpVersion"; }
constexpr auto enumerators(IgmpVersion) {
  return std::array{Mox::enumerator(igmpVersionUnknown, "igmpVersionUnknown"),
                    Mox::enumerator(igmpVersion1, "igmpVersion1"),
                    Mox::enumerator(igmpVersion2, "igmpVersion2"),
                    Mox::enumerator(igmpVersion3, "igmpVersion3")};
}

// The router's filter mode of a group (RFC 3376 6.2.1). Zero means exclude, though new groups start
// in include.
enum IgmpFilterMode : U32 {
  filterModeExclude = 0,
  filterModeInclude = 1,
};

constexpr const char* enumerationName(IgmpFilterMode) { return "Gmp::Igmp::IgmpFilterMode"; }
constexpr auto enumerators(IgmpFilterMode) {
  return std::array{Mox::enumerator(filterModeExclude, "filterModeExclude"),
                    Mox::enumerator(filterModeInclude, "filterModeInclude")};
}

// State of one of the machines' timers.
enum TimerState : U32 {
  timerDisabled = 0,
  timerRunning = 1,
  timerExpired = 2,
};

constexpr const char* enumerationName(TimerState) { return "Gmp::Igmp::TimerState"; }
constexpr auto enumerators(TimerState) {
  return std::array{Mox::enumerator(timerDisabled, "timerDisabled"),
                    Mox::enumerator(timerRunning, "timerRunning"),
                    Mox::enumerator(timerExpired, "timerExpired")};
}

inline IgmpVersion IgmpVersionInstance(unsigned number) {
  return Mox::enumeratorOf<IgmpVersion>(number);
}
inline IgmpVersion IgmpVersionInstance(std::string_view name) {
  return Mox::enumeratorOf<IgmpVersion>(name);
}
inline IgmpFilterMode IgmpFilterModeInstance(unsigned number) {
  return Mox::enumeratorOf<IgmpFilterMode>(number);
}
inline IgmpFilterMode IgmpFilterModeInstance(std::string_view name) {
  return Mox::enumeratorOf<IgmpFilterMode>(name);
}
inline TimerState TimerStateInstance(unsigned number) {
  return Mox::enumeratorOf<TimerState>(number);
}
inline TimerState TimerStateInstance(std::string_view name) {
  return Mox::enumeratorOf<TimerState>(name);
}

// The enumerator's name.
template <Mox::Enumeration E>
std::string stringValue(E value) {
  return Mox::enumeratorText(value);
}

// The enumerator as it stands in a textual dump of values.
template <Mox::Enumeration E>
std::string valueToStrep(E value) {
  return Mox::enumeratorStrep(value);
}

template <Mox::Enumeration E>
std::ostream& operator<<(std::ostream& out, E value) {
  return out << Mox::enumeratorText(value);
}

template <Mox::Enumeration E>
void appendText(std::string& out, E value) {
  out += Mox::enumeratorText(value);
}

// Converts a value of generic access into the enumerator.
template <Mox::Enumeration E>
void sequenceToValue(const Mox::Value& from, E& to) {
  to = Mox::enumeratorFrom<E>(from);
}

}  // namespace Gmp::Igmp
