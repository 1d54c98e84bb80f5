#include <Events/Event.h>

#include <ctime>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include <Mox/ActivityClock.h>

#include <Text/QuerierNames.h>

namespace Agent {

namespace {

std::string roleText(const Event& event) {
  const std::string_view role = roleName(event.state);
  if (event.address.isZero()) return fmt::format("role {}", role);
  return fmt::format("role {} (elected {})", role, event.address.stringValue());
}

// Only version 3 hosts choose a filter mode; a group of older ones is worth a word when it is in
// INCLUDE, which only a specific query of another router brings about.
std::string groupKindText(const Event& event) {
  const bool mode = event.version == 3 || event.filterMode == Gmp::Igmp::filterModeInclude;
  return fmt::format("(version {}{}{})", event.version, mode ? ", " : "",
                     mode ? filterModeName(event.filterMode) : "");
}

std::string queryText(const Event& event) {
  std::string text = fmt::format("query sent for {}, version {}, answers within {}s",
                                 event.group.isZero() ? "all groups" : event.group.stringValue(),
                                 event.version, event.maxResponse);
  const char* before = ", sources ";
  for (const Ilvo::IpAddr source : event.sources) {
    text += std::exchange(before, " ") + source.stringValue();
  }
  return text;
}

std::string interfaceText(std::string_view what, const Event& event) {
  if (event.address.isZero()) return std::string(what);
  return fmt::format("{}, address {}", what, event.address.stringValue());
}

std::string valueText(const Mox::Value& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "on" : "off";
  if (const auto* number = std::get_if<Mox::U64>(&value)) return fmt::to_string(*number);
  if (const auto* seconds = std::get_if<Mox::Seconds>(&value)) return fmt::format("{}s", *seconds);
  const auto* text = std::get_if<std::string>(&value);
  return text == nullptr ? std::string() : *text;
}

std::string countersText(const Event& event) {
  std::string text = "counters";
  const char* before = " ";
  for (const auto& [name, count] : event.counts) {
    text += fmt::format("{}{} {}", std::exchange(before, ", "), name, count);
  }
  return text;
}

class TextSink final : public EventSink {
 public:
  TextSink(std::FILE* out, TimeText timeText) : out_(out), timeText_(std::move(timeText)) {}

  void event(const Event& event) override {
    const std::string line = fmt::format("{}  {}{}{}\n", timeText_(event.time), event.interface,
                                         event.interface.empty() ? "" : "  ", eventText(event));
    std::fputs(line.c_str(), out_);
    std::fflush(out_);
  }

 private:
  std::FILE* out_;
  TimeText timeText_;
};

}  // namespace

std::string eventText(const Event& event) {
  const std::string group = event.group.stringValue();
  const std::string source = event.source.stringValue();
  switch (event.kind) {
    case Event::role: return roleText(event);
    case Event::groupJoined:
      return fmt::format("joined {} by {} {}", group, event.address.stringValue(),
                         groupKindText(event));
    case Event::groupChanged: return fmt::format("changed {} {}", group, groupKindText(event));
    case Event::groupLeft: return fmt::format("left {}", group);
    case Event::sourceJoined: return fmt::format("joined {} source {}", group, source);
    case Event::sourceExcluded: return fmt::format("excluded {} source {}", group, source);
    case Event::sourceLeft: return fmt::format("left {} source {}", group, source);
    case Event::querySent: return queryText(event);
    case Event::versionMismatch:
    case Event::invalidSource: return event.text;
    case Event::interfaceUp: return interfaceText("interface up", event);
    case Event::interfaceDown: return interfaceText("interface down", event);
    case Event::interfaceGone: return interfaceText("interface gone", event);
    case Event::addressChanged: return interfaceText("address changed", event);
    case Event::configChanged:
      return fmt::format("configured {} {}", event.attribute, valueText(event.value));
    case Event::counters: return countersText(event);
    case Event::agentLost: return event.text;
    case Event::agentBack: return "the agent is back";
    case Event::error: return fmt::format("error: {}", event.text);
  }
  return {};
}

std::string timeOfDayText(Mox::Seconds time) {
  timespec real{};
  clock_gettime(CLOCK_REALTIME, &real);
  const Mox::Seconds age = Mox::now() - time;
  const auto second = static_cast<std::time_t>(static_cast<double>(real.tv_sec) +
                                               static_cast<double>(real.tv_nsec) * 1e-9 - age);
  std::tm day{};
  localtime_r(&second, &day);
  return fmt::format("{:02}:{:02}:{:02}", day.tm_hour, day.tm_min, day.tm_sec);
}

std::unique_ptr<EventSink> textEventSink(std::FILE* out, TimeText timeText) {
  return std::make_unique<TextSink>(out, std::move(timeText));
}

}  // namespace Agent
