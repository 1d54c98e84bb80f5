#include "ShowConfig.h"

#include <cstdio>
#include <utility>

#include <Client/RequestClient.h>
#include <Intake/IntakeProcess.h>
#include <Mox/TypeInfo.h>
#include <Text/Json.h>
#include <Text/Table.h>

namespace Igmpq {

using Agent::RequestClient;
using Settings = RequestClient::Settings;

namespace {

// The agent's own settings first, once.
std::vector<Settings> settingsOf(const std::string& socket,
                                 const std::vector<std::string>& interfaces) {
  Agent::EventLoop loop;
  RequestClient client(loop, socket);
  if (interfaces.empty()) return client.settings("");
  std::vector<Settings> all;
  for (const std::string& interface : interfaces) {
    std::vector<Settings> answer = client.settings(interface);
    if (all.empty()) all.push_back(answer.front());
    // It may be gone by now.
    if (answer.size() > 1) all.push_back(std::move(answer[1]));
  }
  return all;
}

void printText(const std::vector<Settings>& all, bool withAgent) {
  Agent::Table table({{"interface", "INTERFACE"},
                      {"setting", "SETTING"},
                      {"value", "VALUE"},
                      {"origin", "ORIGIN"}});
  for (const Settings& settings : all) {
    const bool isAgent = settings.interface.empty();
    if (isAgent && !withAgent) continue;
    const Agent::Cell interface =
        isAgent ? Agent::Cell() : Agent::Cell(std::string_view(settings.interface));
    for (const RequestClient::Setting& each : settings.settings) {
      const Agent::Cell origin =
          each.origin.empty() ? Agent::Cell() : Agent::Cell(std::string_view(each.origin));
      table.row({interface, each.name, each.text, origin});
    }
  }
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

void printJson(const std::vector<Settings>& all, bool withAgent) {
  std::string lines;
  for (const Settings& settings : all) {
    if (settings.interface.empty() && !withAgent) continue;
    lines += (lines.empty() ? "\n" : ",\n") + jsonOf(settings, all.front());
  }
  std::printf("[%s\n]\n", lines.c_str());
}

}  // namespace

void showConfig(const std::string& socket, const std::vector<std::string>& interfaces, bool json) {
  const std::vector<Settings> all = settingsOf(socket, interfaces);
  const bool withAgent = interfaces.empty();
  if (json) {
    printJson(all, withAgent);
  } else {
    printText(all, withAgent);
  }
}

}  // namespace Igmpq
