#include <Local/MachineIdentity.h>

#include <fstream>

namespace Agent {

namespace {

std::string firstWordOf(const char* path) {
  std::ifstream file(path);
  std::string word;
  file >> word;
  return word;
}

}  // namespace

std::string bootId() { return firstWordOf("/proc/sys/kernel/random/boot_id"); }

std::string machineId() { return firstWordOf("/etc/machine-id"); }

}  // namespace Agent
