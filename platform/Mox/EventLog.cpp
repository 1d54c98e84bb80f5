#include <Mox/EventLog.h>

#include <cstdio>
#include <utility>

#include <Mox/ActivityClock.h>

namespace Mox {

namespace {

// Arguments come from the network: the memory that they take is bounded.
constexpr size_t recentMax = 1024;

EventLogSink& sink() {
  static auto* current = new EventLogSink;
  return *current;
}

EventLogWanted& wanted() {
  static auto* current = new EventLogWanted;
  return *current;
}

std::vector<EventLogHandle*>& handles() {
  static auto* all = new std::vector<EventLogHandle*>;
  return *all;
}

std::string filledIn(std::string_view format, const std::vector<std::string>& args) {
  std::string text;
  size_t next = 0;
  for (size_t at = 0; at < format.size(); ++at) {
    const bool argument = format[at] == '%' && at + 1 < format.size() &&
                          (format[at + 1] == 's' || format[at + 1] == 'd') && next < args.size();
    if (argument) {
      text += args[next++];
      ++at;
    } else {
      text += format[at];
    }
  }
  return text;
}

}  // namespace

void eventLogSinkIs(EventLogSink newSink, EventLogWanted isWanted) {
  sink() = std::move(newSink);
  wanted() = std::move(isWanted);
  for (EventLogHandle* handle : handles()) handle->recent_.clear();
}

EventLogHandle::EventLogHandle(const EventLogMessage& message) : message_(message) {
  handles().push_back(this);
}

EventLogHandle::~EventLogHandle() { std::erase(handles(), this); }

std::vector<const EventLogHandle*> EventLogHandle::all() {
  return {handles().begin(), handles().end()};
}

bool EventLogHandle::isWanted() const { return !wanted() || wanted()(message_); }

void EventLogHandle::emit(const std::vector<std::string>& args, const std::vector<Value>& values) {
  std::string text = filledIn(message_.format, args);
  const bool heldBack = limited(text);
  const EventLogEntry entry{message_, std::move(text), heldBack, values};
  if (sink()) {
    sink()(entry);
  } else if (!entry.limited) {
    std::fprintf(stderr, "%s: %s\n", message_.name, entry.text.c_str());
  }
}

bool EventLogHandle::limited(const std::string& text) {
  if (message_.interval <= 0.0) return false;
  const Seconds time = now();
  if (recent_.size() >= recentMax && !recent_.contains(text)) {
    std::erase_if(recent_,
                  [&](const auto& r) { return time - r.second.since >= message_.interval; });
    if (recent_.size() >= recentMax) return true;  // so many different arguments are a flood, too
  }
  Recent& recent = recent_.try_emplace(text, Recent{time, 0.0}).first->second;
  if (time - recent.since >= message_.interval) recent = Recent{time, 0.0};
  recent.count += 1.0;
  return recent.count > message_.burst;
}

}  // namespace Mox
