#include <Config/SettingOrigin.h>

namespace Agent {

SettingOrigin originOf(const SettingOrigins& origins, std::string_view setting) {
  const auto found = origins.find(setting);
  return found == origins.end() ? SettingOrigin{} : found->second;
}

std::string originText(const SettingOrigin& origin) {
  switch (origin.from) {
    case SettingOrigin::byDefault: return "default";
    case SettingOrigin::file: {
      ConfigPlace line = origin.place;
      line.column = 0;
      return placeText(line);
    }
    case SettingOrigin::commandLine: return "command line";
    case SettingOrigin::runTime: return "set at run time";
  }
  return {};
}

}  // namespace Agent
