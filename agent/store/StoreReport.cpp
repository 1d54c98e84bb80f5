#include <Store/StoreReport.h>

#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Mox/TypeInfo.h>
#include <Settings/SettingText.h>
#include <Text/QuerierNames.h>
#include <Text/Table.h>
#include <Text/WallClock.h>

namespace Agent {

namespace {

using Interface = AttrLogCopy::Interface;
using Columns = std::vector<Table::Column>;

const Columns storeColumns{{"complete", "COPY"},   {"agentLostSeconds", "AGENT LOST"},
                           {"agentLostUtc", "AT"}, {"groupCount", "GROUPS"},
                           {"formatVersion"},      {"bootId"},
                           {"machineId"}};
const Columns interfaceColumns{{"interface", "INTERFACE"},
                               {"index"},
                               {"mac"},
                               {"role", "ROLE"},
                               {"groupCount", "GROUPS"},
                               {"setAtRunTime", "SET AT RUN TIME"}};

// Nothing where the log could not send an identity.
Cell known(std::string_view text) { return text.empty() ? Cell() : Cell(text); }

template <class E>
void addSetAtRunTime(std::vector<std::string>& texts, const Mox::Ptr<E>& held,
                     const Mox::Ptr<E>& configured) {
  if (!held || !configured) return;
  for (const Mox::AttrInfo& attr : held->type().attrs) {
    if (attr.set == nullptr) continue;
    const Mox::Value value = attr.get(*held);
    if (value == attr.get(*configured)) continue;
    texts.push_back(fmt::format("{}={}", settingKey(attr.name), settingValueText(value)));
  }
}

std::string setAtRunTime(const Interface& interface) {
  std::vector<std::string> texts;
  addSetAtRunTime(texts, interface.config, interface.configuredConfig);
  addSetAtRunTime(texts, interface.intake, interface.configuredIntakeConfig);
  addSetAtRunTime(texts, interface.process, interface.configuredProcess);
  return fmt::to_string(fmt::join(texts, " "));
}

void addStore(Table& table, const StoreState& state, Mox::Seconds now) {
  const bool isLost = state.lostTime() != 0.0;
  const Mox::Seconds lostFor = isLost ? now - state.lostTime() : Mox::never;
  table.row(
      {Flag{state.complete(), "complete", "partial"}, Duration{lostFor},
       isLost ? known(table.kept(std::string(UtcText(state.lostWallClock()).text()))) : Cell(),
       state.groups(), Mox::U64{state.formatVersion()}, known(table.kept(state.bootId())),
       known(table.kept(state.machineId()))});
}

void addInterfaces(Table& table, const AttrLogCopy::Interfaces& interfaces) {
  for (const auto& [name, interface] : interfaces) {
    const bool isKnown = interface.state != nullptr && interface.state->index() != 0;
    table.row({table.kept(name), isKnown ? Cell(Mox::U64{interface.state->index()}) : Cell(),
               isKnown ? known(table.kept(interface.state->mac())) : Cell(),
               roleName(interface.status->state()), Mox::U64{interface.status->group().size()},
               known(table.kept(setAtRunTime(interface)))});
  }
}

}  // namespace

std::string storeText(const StoreState& state, const AttrLogCopy::Interfaces& interfaces,
                      Mox::Seconds now) {
  Table store(storeColumns);
  addStore(store, state, now);
  std::string text;
  store.appendText(text);
  if (interfaces.empty()) return text;
  Table below(interfaceColumns);
  addInterfaces(below, interfaces);
  text += '\n';
  below.appendText(text);
  return text;
}

std::string storeJson(const StoreState& state, const AttrLogCopy::Interfaces& interfaces,
                      Mox::Seconds now) {
  Table store(storeColumns);
  Table& below = store.belowIs("interfaces", interfaceColumns);
  addStore(store, state, now);
  addInterfaces(below, interfaces);
  std::string json;
  store.appendJson(json, Table::Lines::one);
  // There is one store, so its object stands for itself.
  return json.substr(1, json.size() - 2) + '\n';
}

void printStore(std::FILE* out, const StoreState& state, const AttrLogCopy::Interfaces& interfaces,
                Mox::Seconds now, Format format) {
  const std::string text = format == Format::json ? storeJson(state, interfaces, now)
                                                  : storeText(state, interfaces, now);
  std::fwrite(text.data(), 1, text.size(), out);
}

}  // namespace Agent
