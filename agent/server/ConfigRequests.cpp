// Requests about the configuration: to read it again, and to show it.
#include <algorithm>
#include <array>
#include <utility>

#include <fmt/format.h>

#include <Local/AgentErrors.h>
#include "RequestHandlers.h"

namespace Agent {

namespace {

constexpr size_t linesOfStep = 200;  // of changes

const char* kindName(ConfigChange::Kind kind) {
  switch (kind) {
    case ConfigChange::fault: return "fault";
    case ConfigChange::added: return "added";
    case ConfigChange::removed: return "removed";
    case ConfigChange::changed: return "changed";
    case ConfigChange::needsRestart: return "needsRestart";
  }
  return "";
}

Json changeJson(const ConfigChange& change) {
  Json json{{"change", kindName(change.kind)}};
  const auto add = [&](const char* key, const std::string& text) {
    if (!text.empty()) json[key] = text;
  };
  add("interface", change.interface);
  add("setting", change.setting);
  add("before", change.before);
  add("after", change.after);
  add("origin", change.origin);
  json["text"] = changeText(change);
  return json;
}

Json settingJson(const ShownSetting& setting) {
  Json json{{"key", setting.key},
            {"name", setting.name},
            {"value", jsonOf(setting.value)},
            {"text", setting.text},
            {"origin", nullptr}};
  if (!setting.origin.empty()) json["origin"] = setting.origin;
  return json;
}

// A line for each change, and one that ends them.
class ChangesAnswer final : public Answer {
 public:
  explicit ChangesAnswer(std::vector<ConfigChange> changes) : changes_(std::move(changes)) {}

  Progress append(std::string& out) override {
    const size_t end = std::min(changes_.size(), next_ + linesOfStep);
    while (next_ < end && out.size() < partBytes) {
      out += jsonLine(changeJson(changes_[next_++])) + '\n';
    }
    if (next_ < changes_.size()) return Progress::more;
    out += jsonLine({{"end", true}}) + '\n';
    return Progress::done;
  }

 private:
  const std::vector<ConfigChange> changes_;
  size_t next_ = 0;
};

// A line for the agent, one for each interface, and one that ends them. The settings of a line are
// those of one moment.
class ConfigAnswer final : public Answer {
 public:
  ConfigAnswer(const ConfigServices& services, std::vector<std::string> interfaces)
      : services_(services), interfaces_(std::move(interfaces)) {}

  Progress append(std::string& out) override {
    if (next_ > interfaces_.size()) {
      out += jsonLine({{"end", true}}) + '\n';
      return Progress::done;
    }
    const std::string interface = next_ == 0 ? "" : interfaces_[next_ - 1];
    ++next_;
    const auto settings = services_.settings(interface);
    if (!settings) return Progress::more;
    Json json = Json::object();
    if (!interface.empty()) json["interface"] = interface;
    Json& list = json["settings"] = Json::array();
    for (const ShownSetting& setting : *settings) list.push_back(settingJson(setting));
    out += jsonLine(json) + '\n';
    return Progress::more;
  }

 private:
  const ConfigServices& services_;
  const std::vector<std::string> interfaces_;
  size_t next_ = 0;
};

std::string faultText(const ConfigChange& change) {
  return change.origin.empty() ? change.what : change.origin + ": " + change.what;
}

}  // namespace

std::string changeText(const ConfigChange& change) {
  const std::string of = change.interface.empty() ? "agent" : change.interface;
  switch (change.kind) {
    case ConfigChange::fault: return faultText(change);
    case ConfigChange::added: return of + " added";
    case ConfigChange::removed: return of + " removed";
    case ConfigChange::changed:
      return fmt::format("{} {} {} (was {}), {}", of, change.setting, change.after, change.before,
                         change.origin);
    case ConfigChange::needsRestart:
      return fmt::format("{} {} stays {} until a restart; {}, {}", of, change.setting,
                         change.before, change.after, change.origin);
  }
  return {};
}

std::unique_ptr<Answer> answerReload(const RequestServices& services, const Request& request) {
  request.allow({});
  request.needConfigure("have the configuration read again");
  services.turn();  // what came before the request counts before it
  try {
    auto answer = std::make_unique<ChangesAnswer>(services.config.reload());
    services.turn();
    return answer;
  } catch (const std::runtime_error& error) {
    throw RequestError(RequestError::failure, error.what());
  }
}

std::unique_ptr<Answer> answerConfig(const RequestServices& services, const Request& request) {
  request.allow({"interface"});
  std::vector<std::string> interfaces = services.config.interfaces();
  if (const auto only = request.optionalText("interface")) {
    if (std::ranges::find(interfaces, *only) == interfaces.end()) {
      throw RequestError(RequestError::badUse, noInterfaceText(*only, listed(interfaces)));
    }
    interfaces = {*only};
  }
  return std::make_unique<ConfigAnswer>(services.config, std::move(interfaces));
}

}  // namespace Agent
