// The faults of a configuration, each with its place.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include <MoxBase/Types.h>

namespace Agent {

// Lines and columns count from 1; 0 for a file as a whole.
struct ConfigPlace {
  std::string file;
  Mox::U32 line = 0;
  Mox::U32 column = 0;

  bool operator==(const ConfigPlace&) const = default;
};

// "/etc/igmpq/igmpq.toml:3:18", without what is 0.
std::string placeText(const ConfigPlace& place);

struct ConfigFault {
  ConfigPlace place;
  std::string what;  // is wrong, and what would be right
};

// Thrown for a configuration that cannot be used. Its text has a line "FILE:LINE:COLUMN: ..." for
// each fault.
class ConfigError final : public std::runtime_error {
 public:
  explicit ConfigError(std::vector<ConfigFault> faults);

  const std::vector<ConfigFault>& faults() const { return faults_; }

 private:
  std::vector<ConfigFault> faults_;
};

}  // namespace Agent
