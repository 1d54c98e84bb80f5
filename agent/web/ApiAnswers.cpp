#include "ApiAnswers.h"

#include <charconv>
#include <optional>
#include <utility>

#include <Mox/ActivityClock.h>
#include <Mox/TypeInfo.h>
#include <Report/GroupReport.h>
#include <Report/StateReport.h>
#include <Settings/SettingText.h>
#include <Text/Json.h>
#include <fmt/format.h>

namespace Agent {

using Ilvo::IpAddr;

namespace {

constexpr size_t mostGroupsOfPage = 10'000;
constexpr size_t partBytes = size_t{64} * 1024;

WebAnswer noInterface(const std::string& name) {
  return webError(404, "there is no interface " + name);
}

class GroupsBody final : public WebBody {
 public:
  explicit GroupsBody(InterfaceView view) : parts_(std::move(view)) {}

  Progress append(std::string& out) override {
    const std::string part = parts_.next(Mox::now());
    out += part;
    return part.empty() ? Progress::done : Progress::more;
  }

 private:
  GroupParts parts_;
};

// Server-sent events (HTML living standard, section 9.2).
class EventsBody final : public WebBody {
 public:
  EventsBody(EventRing& events, std::string_view lastId) : reader_(events, lastId) {}

  Progress append(std::string& out) override {
    // The client knows at once that it is connected.
    if (!std::exchange(begun_, true)) out += ": events of the agent\n\n";
    const size_t before = out.size();
    reader_.append(out, partBytes);
    return out.size() == before ? Progress::waits : Progress::more;
  }
  void wakeIs(const std::function<void()>& wake) override { reader_.wakeIs(wake); }
  std::string idleText() const override { return ":\n\n"; }

 private:
  EventRing::Reader reader_;
  bool begun_ = false;
};

void appendValue(JsonObject& json, const Mox::AttrInfo& attr, const Mox::Value& value) {
  const bool isSeconds = attr.value == Mox::ValueKind::seconds;
  const std::string key = std::string(attr.name) + (isSeconds ? "Seconds" : "");
  std::string& out = json.value(key.c_str());
  if (const auto* flag = std::get_if<bool>(&value)) {
    out += *flag ? "true" : "false";
  } else if (const auto* number = std::get_if<Mox::U64>(&value)) {
    out += std::to_string(*number);
  } else if (const auto* seconds = std::get_if<double>(&value)) {
    appendJson(out, *seconds);
  } else {
    appendJson(out, std::string_view(settingValueText(value)));
  }
}

void appendSettings(JsonObject& json, const Mox::EntityBase* entity) {
  if (entity == nullptr) return;
  for (const Mox::AttrInfo& attr : entity->type().attrs) {
    if (attr.set == nullptr && attr.kind != Mox::AttrKind::derived) continue;
    appendValue(json, attr, attr.get(*entity));
  }
}

}  // namespace

std::optional<size_t> numberOf(std::string_view text) {
  size_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

WebAnswer agentAnswer(const ApiCall& call) {
  const AgentWatcher& agent = call.state.agent();
  JsonObject json;
  json.times(Mox::now()).flag("connected", agent.isCurrent());
  json.seconds("sinceSeconds", Mox::now() - agent.since());
  if (agent.isCurrent()) {
    json.null("reason");
  } else {
    json.text("reason", agent.absence());
  }
  return {.text = std::move(json).line() + '\n'};
}

WebAnswer interfacesAnswer(const ApiCall& call) {
  return {.text = stateJson(StatePart::interfaces, call.state.views(), Mox::now())};
}

WebAnswer interfaceAnswer(const ApiCall& call) {
  const std::optional<InterfaceView> view = call.state.view(call.names[0]);
  if (!view) return noInterface(call.names[0]);
  return {.text = interfaceJson(*view, Mox::now())};
}

WebAnswer groupsAnswer(const ApiCall& call) {
  std::optional<InterfaceView> view = call.state.view(call.names[0]);
  if (!view) return noInterface(call.names[0]);
  IpAddr from;
  if (const auto given = call.query.find("from"); given != call.query.end()) {
    const std::optional<IpAddr> parsed = IpAddr::parse(given->second);
    if (!parsed) return webError(400, "from is no IPv4 address");
    from = *parsed;
  }
  const auto limit = call.query.find("limit");
  if (limit == call.query.end() && from.isZero()) {
    return {.body = std::make_unique<GroupsBody>(std::move(*view))};
  }
  const std::optional<size_t> groups =
      limit == call.query.end() ? mostGroupsOfPage : numberOf(limit->second);
  if (!groups || *groups == 0 || *groups > mostGroupsOfPage) {
    return webError(400, fmt::format("limit is no number from 1 to {}", mostGroupsOfPage));
  }
  GroupPage page = groupPage(*view, from, *groups, Mox::now());
  WebAnswer answer{.text = std::move(page.json)};
  if (page.next) {
    answer.headers.emplace_back("Link", fmt::format("<?from={}&limit={}>; rel=\"next\"",
                                                    page.next->stringValue(), *groups));
  }
  return answer;
}

WebAnswer groupAnswer(const ApiCall& call) {
  const std::optional<InterfaceView> view = call.state.view(call.names[0]);
  if (!view) return noInterface(call.names[0]);
  const std::optional<IpAddr> group = IpAddr::parse(call.names[1]);
  if (!group) return webError(400, "the group is no IPv4 address");
  std::optional<std::string> json = groupJson(*view, *group, Mox::now());
  if (!json) {
    return webError(404, fmt::format("{} has no group {}", view->name, group->stringValue()));
  }
  return {.text = std::move(*json)};
}

WebAnswer countersAnswer(const ApiCall& call) {
  return {.text = stateJson(StatePart::counters, call.state.views(), Mox::now())};
}

WebAnswer configAnswer(const ApiCall& call) {
  std::string lines;
  for (const auto& [name, copy] : call.state.interfaces()) {
    if (!copy.config) continue;
    JsonObject json;
    json.text("interface", name);
    appendSettings(json, copy.config.get());
    appendSettings(json, copy.intake.get());
    appendSettings(json, copy.process.get());
    lines += (lines.empty() ? "\n" : ",\n") + std::move(json).line();
  }
  return {.text = '[' + lines + "\n]\n"};
}

WebAnswer eventsAnswer(const ApiCall& call) {
  return {.type = "text/event-stream",
          .body = std::make_unique<EventsBody>(call.state.events(), call.lastEventId)};
}

}  // namespace Agent
