// The settings of the agent as a whole: its sockets, rights, output and rings. One table serves the
// options of the command line and the section [agent] of the configuration file.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include <MoxBase/Types.h>
#include <Settings/OptionNumber.h>

namespace Agent {

struct AgentSettings {
  std::string socket;  // empty: the usual path
  std::string store;   // empty: none
  std::string user;    // empty: the user that has started it
  std::string readGroup;
  std::string configureGroup;
  Mox::U64 maxReaders = 64;
  Mox::Seconds stallTimeout = 30.0;
  std::string events = "changes";
  Mox::U64 eventRate = 100;
  bool queries = false;
  std::optional<Mox::U64> ringKib;  // none: by the number of interfaces
};

// The account of this machine that a text names, if any.
enum class AccountKind { none, user, group, groupOrAll };
inline constexpr const char* everyUser = "all";  // in the place of a group

struct AgentSetting {
  using Member =
      std::variant<std::string AgentSettings::*, bool AgentSettings::*, Mox::U64 AgentSettings::*,
                   Mox::Seconds AgentSettings::*, std::optional<Mox::U64> AgentSettings::*>;

  std::string_view name;  // of the option, without the dashes, and of the key
  const char* valueName;  // in the help
  Member member;
  NumberRange range;                            // of a number
  const char* unset = "";                       // the meaning of no value
  std::span<const std::string_view> choices{};  // of a text; empty for any
  AccountKind names = AccountKind::none;
  bool atStart = false;  // a running agent keeps the value that it has
  const char* help;
};

inline constexpr std::array<std::string_view, 3> eventChoices{"all", "changes", "none"};

inline constexpr std::array agentSettings{
    AgentSetting{.name = "socket",
                 .valueName = "PATH",
                 .member = &AgentSettings::socket,
                 .range = {},
                 .help = "socket at which other processes read and set the state"},
    AgentSetting{.name = "store",
                 .valueName = "PATH",
                 .member = &AgentSettings::store,
                 .range = {},
                 .unset = "none",
                 .atStart = true,
                 .help = "socket of a store that has kept the state of the agent before"},
    AgentSetting{.name = "user",
                 .valueName = "NAME",
                 .member = &AgentSettings::user,
                 .range = {},
                 .unset = "this one",
                 .names = AccountKind::user,
                 .atStart = true,
                 .help = "the user that the agent becomes; the right to raw packets stays"},
    AgentSetting{.name = "read-group",
                 .valueName = "NAME",
                 .member = &AgentSettings::readGroup,
                 .range = {},
                 .unset = "none",
                 .names = AccountKind::groupOrAll,
                 .help = "group whose members can read the state, or all for every user"},
    AgentSetting{.name = "configure-group",
                 .valueName = "NAME",
                 .member = &AgentSettings::configureGroup,
                 .range = {},
                 .unset = "none",
                 .names = AccountKind::group,
                 .help = "group whose members can read and change it"},
    AgentSetting{.name = "max-readers",
                 .valueName = "N",
                 .member = &AgentSettings::maxReaders,
                 .range = {.least = 1, .most = 4096, .whole = true},
                 .help = "readers of the attribute log at a time"},
    AgentSetting{
        .name = "stall-timeout",
        .valueName = "SECONDS",
        .member = &AgentSettings::stallTimeout,
        .range = {.least = 1, .most = 86400},
        .help = "time over which a reader in arrears must take 64 KiB/s, or is disconnected"},
    AgentSetting{.name = "events",
                 .valueName = "WHICH",
                 .member = &AgentSettings::events,
                 .range = {},
                 .choices = eventChoices,
                 .atStart = true,
                 .help = "groups and sources that are reported: all; changes (more than 32 sources "
                         "of a group at once as their number); none"},
    AgentSetting{.name = "event-rate",
                 .valueName = "N",
                 .member = &AgentSettings::eventRate,
                 .range = {.least = 0, .most = 1000000, .whole = true},
                 .help = "events of a kind reported within a second, the others as their number; "
                         "0: all"},
    AgentSetting{.name = "queries",
                 .valueName = "on|off",
                 .member = &AgentSettings::queries,
                 .range = {},
                 .help = "report each query sent"},
    AgentSetting{.name = "ring-size",
                 .valueName = "KIB",
                 .member = &AgentSettings::ringKib,
                 .range = {.least = 32, .most = 1048576, .whole = true},
                 .unset = "4096 for up to 16 interfaces, else 65536 in all",
                 .atStart = true,
                 .help = "size of each interface's receive ring"},
};

// Null for a name that no setting has.
const AgentSetting* agentSetting(std::string_view name);

// Sets the member that the text is for; `shown` is the name in errors. Throws SettingError.
void agentSettingIs(AgentSettings& settings, const AgentSetting& setting, std::string_view shown,
                    std::string_view text);

// The value as it would be given; empty for none.
std::string agentSettingText(const AgentSettings& settings, const AgentSetting& setting);

}  // namespace Agent
