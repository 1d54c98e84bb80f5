#include <Link/Privileges.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Agent {

std::string missingPrivilege() {
  // The kernel's answer decides, not the capability sets.
  const int opened = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  if (opened >= 0) {
    close(opened);
    return {};
  }
  if (errno != EPERM) {
    return "cannot open a packet socket: " + std::generic_category().message(errno);
  }
  std::error_code failed;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", failed);
  const std::string path = failed ? "igmpq" : self.string();
  return "not permitted to receive and send packets (needs CAP_NET_RAW): run it as root, or grant "
         "it once with `sudo setcap cap_net_raw+ep " +
         path + "`";
}

// A descriptor each for a thousand interfaces is more than shells allow by default.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace Agent
