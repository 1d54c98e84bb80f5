#include "ShowConfig.h"

#include <cstdio>
#include <deque>
#include <utility>

#include <Client/RequestClient.h>
#include <Intake/IntakeProcess.h>
#include <Mox/TypeInfo.h>
#include <Settings/SettingText.h>
#include <Text/Json.h>
#include <Text/Table.h>

namespace Igmpq {

using Agent::RequestClient;
using Settings = RequestClient::Settings;

namespace {

struct Shown {
  std::vector<Settings> interfaces;
  Settings agent;
};

Shown shownOf(const std::string& socket, const std::vector<std::string>& interfaces) {
  Agent::EventLoop loop;
  RequestClient client(loop, socket);
  Shown shown;
  // An interface may be gone by now.
  const auto take = [&](const std::string& interface) {
    for (Settings& settings : client.settings(interface)) {
      if (settings.interface.empty()) {
        shown.agent = std::move(settings);
      } else {
        shown.interfaces.push_back(std::move(settings));
      }
    }
  };
  if (interfaces.empty()) take("");
  for (const std::string& interface : interfaces) take(interface);
  return shown;
}

// Named as in the file, where people go to change them. The names are kept for the table.
void addRows(Agent::Table& table, const Settings& settings, std::deque<std::string>& names) {
  const auto cell = [](const std::string& text) {
    return text.empty() ? Agent::Cell() : Agent::Cell(std::string_view(text));
  };
  for (const RequestClient::Setting& each : settings.settings) {
    const std::string_view name = names.emplace_back(Agent::settingKey(each.name));
    table.row({cell(settings.interface), name, each.text, cell(each.origin)});
  }
}

void printText(const Shown& shown, bool withAgent) {
  Agent::Table table({{"interface", "INTERFACE"},
                      {"setting", "SETTING"},
                      {"value", "VALUE"},
                      {"origin", "ORIGIN"}});
  std::deque<std::string> names;
  for (const Settings& settings : shown.interfaces) addRows(table, settings, names);
  if (withAgent) addRows(table, shown.agent, names);
  std::string text;
  table.appendText(text);
  std::fputs(text.c_str(), stdout);
}

bool isOfAllInterfaces(const RequestClient::Setting& setting) {
  const auto* attr = Mox::typeInfoOf<Agent::IntakeProcessConfig>().attr(setting.name);
  return attr != nullptr;
}

// Each interface has the limits of all of them as well.
std::string jsonOf(const Settings& settings, const Settings& agent) {
  Agent::JsonObject json;
  Agent::JsonObject origins;
  const auto add = [&](const RequestClient::Setting& setting) {
    json.value(setting.key.c_str()) += setting.json;
    if (setting.origin.empty()) {
      origins.null(setting.key.c_str());
    } else {
      origins.text(setting.key.c_str(), setting.origin);
    }
  };
  if (settings.interface.empty()) {
    json.null("interface");
  } else {
    json.text("interface", settings.interface);
  }
  for (const RequestClient::Setting& each : settings.settings) add(each);
  for (const RequestClient::Setting& each : agent.settings) {
    if (!settings.interface.empty() && isOfAllInterfaces(each)) add(each);
  }
  return json.object("origins", origins).line();
}

void printJson(const Shown& shown, bool withAgent) {
  std::string lines;
  const auto add = [&](const Settings& settings) {
    lines += (lines.empty() ? "\n" : ",\n") + jsonOf(settings, shown.agent);
  };
  for (const Settings& settings : shown.interfaces) add(settings);
  if (withAgent) add(shown.agent);
  std::printf("[%s\n]\n", lines.c_str());
}

}  // namespace

void showConfig(const std::string& socket, const std::vector<std::string>& interfaces, bool json) {
  const Shown shown = shownOf(socket, interfaces);
  const bool withAgent = interfaces.empty();
  if (json) {
    printJson(shown, withAgent);
  } else {
    printText(shown, withAgent);
  }
}

}  // namespace Igmpq
