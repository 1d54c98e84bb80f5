// Traces: a record of what the system did, in parts that become text only when they are read.
//
// A trace has a level (3 events, 6 and 8 detail) and belongs to a handle, known by name. It goes to
// two places at the same level: the Brevlog ring, which records parts and is always on for events,
// and the trace facility, a text sink that is off until lines are wanted as they happen. A
// trace above both levels costs one comparison.
//
// A part is a literal, a number, a name, an enumerator, an address, or an object whose
// `tracePart` (found by argument-dependent lookup) gives a small copy that prints the same later.
// A value that cannot be copied as bytes, such as one with a list in it, becomes text at once.
//
//   trace<6>(igmpPacket, name(), " handling valid igmp packet of type ", type);
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <Brevlog/Ring.h>
#include <Mox/ActivityClock.h>
#include <Mox/Name.h>
#include <MoxBase/Export.h>
#include <MoxBase/Place.h>
#include <MoxBase/Text.h>
#include <MoxBase/Types.h>

namespace Mox {

// A named source of traces with its two levels. Lives as long as the process.
class MOX_PUBLIC TraceHandle {
 public:
  static constexpr int off = -1;
  static constexpr int defaultRingLevel = 3;

  // The handle of that name, made on first use. `modelFile` is what its lines name as their file.
  static TraceHandle& named(std::string_view name, const char* modelFile = "");
  static std::vector<TraceHandle*> all();

  const char* name() const { return name_.c_str(); }
  const char* modelFile() const { return modelFile_.c_str(); }
  int ringLevel() const { return ringLevel_; }
  int facilityLevel() const { return facilityLevel_; }
  // Lines up to and including that level are kept; `off` keeps none.
  void ringLevelIs(int level);
  void facilityLevelIs(int level);

  int inForce() const { return inForce_; }

 private:
  TraceHandle(Name name, const char* modelFile) : name_(name), modelFile_(modelFile) {}

  int inForce_ = defaultRingLevel;
  int ringLevel_ = defaultRingLevel;
  int facilityLevel_ = off;
  Name name_;
  Name modelFile_;  // kept: the library that named it may be unloaded
};

// The handle of a name as an object of the library that traces. A reference would do but for the
// order in which a library sets up its objects: only an object can be given a place in it.
//
//   [[gnu::init_priority(1001)]] const Mox::ModelTrace igmpPacketTrace("IgmpPacket", "Model.tin");
//   igmpPacketTrace->ringLevelIs(8);
//   trace<6>(igmpPacketTrace, "version: ", version);
class MOX_PUBLIC ModelTrace {
 public:
  ModelTrace(std::string_view name, const char* modelFile)
      : handle_(TraceHandle::named(name, modelFile)) {}

  TraceHandle& operator*() const { return handle_; }
  TraceHandle* operator->() const { return &handle_; }

 private:
  TraceHandle& handle_;
};

// One line as the trace facility hands it out.
struct TraceLine {
  const TraceHandle& handle;
  int level;
  Place where;
  std::string_view text;
};

// Where the facility's lines go; an empty function for nowhere.
using TraceSink = std::function<void(const TraceLine&)>;
MOX_PUBLIC void traceSinkIs(TraceSink sink);
MOX_PUBLIC void traceSinkWrite(const TraceLine& line);

// The ring of this process.
MOX_PUBLIC Brevlog::Ring& brevlog();

// A byte that the facility writes as it is and the ring prints as a number.
struct RawByte {
  U8 value;
};
inline void appendText(std::string& out, RawByte byte) { out += static_cast<char>(byte.value); }

// A handle together with the place that traces.
struct TraceAt {
  // Made at each call of trace(), hence not explicit.
  // NOLINTNEXTLINE(google-explicit-constructor)
  TraceAt(const TraceHandle& h, Place w = Place::here()) : handle(h), where(w) {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  TraceAt(const ModelTrace& t, Place w = Place::here()) : TraceAt(*t, w) {}
  const TraceHandle& handle;
  Place where;
};

namespace detail {

template <class T>
auto facilityPart(const T& value) {
  if constexpr (requires { tracePart(value); }) {
    return tracePart(value);
  } else if constexpr (std::is_array_v<T> || std::is_trivially_copyable_v<T>) {
    return std::decay_t<const T&>(value);
  } else {
    return textOf(value);
  }
}

template <class T>
auto ringPart(const T& value) {
  if constexpr (std::is_same_v<T, RawByte>) {
    return U32{value.value};
  } else {
    return facilityPart(value);
  }
}

template <class... Part>
[[gnu::noinline, gnu::cold]] void traceText(int level, const TraceAt& at, const Part&... parts) {
  std::string text;
  (appendText(text, facilityPart(parts)), ...);
  traceSinkWrite({at.handle, level, at.where, text});
}

template <int level, class... Part>
[[gnu::noinline]] void traceNow(const TraceAt& at, const Part&... parts) {
  if (level <= at.handle.ringLevel()) {
    brevlog().record(level, at.handle.name(), lastNow(), ringPart(parts)...);
  }
  if (level <= at.handle.facilityLevel()) traceText(level, at, parts...);
}

}  // namespace detail

template <int level, class... Part>
inline void trace(TraceAt at, const Part&... parts) {
  if (level > at.handle.inForce()) [[likely]] {
    return;
  }
  detail::traceNow<level>(at, parts...);
}

}  // namespace Mox
