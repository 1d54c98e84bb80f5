#include <Link/Privileges.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <fmt/format.h>
#include <grp.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Agent {

namespace {

[[noreturn]] void fail(const std::string& what) {
  const int why = errno;
  throw std::runtime_error(
      fmt::format("cannot {}: {}", what, std::generic_category().message(why)));
}

// What no program that this process executes could have. Only root can shrink that; without root,
// a program gets no more rights by executing another one, see below.
void dropBoundingSet(std::uint32_t kept) {
  for (unsigned long capability = 0; prctl(PR_CAPBSET_READ, capability, 0, 0, 0) >= 0;
       ++capability) {
    if (capability < 32 && (kept & (1u << capability)) != 0) continue;
    if (prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0 && errno != EPERM) {
      fail("drop capabilities");
    }
  }
}

// All three kinds of identifiers, so that there is no way back.
void userIs(const User& user) {
  if (prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0 ||
      setgroups(user.groups.size(), user.groups.data()) != 0 ||
      setresgid(user.group, user.group, user.group) != 0 ||
      setresuid(user.id, user.id, user.id) != 0 || prctl(PR_SET_KEEPCAPS, 0, 0, 0, 0) != 0) {
    fail(fmt::format("become the user {}", user.name));
  }
}

// The ambient set goes with the inheritable one.
void capabilitiesAre(std::uint32_t kept) {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  const __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {
      {.effective = kept, .permitted = kept, .inheritable = 0}, {}};
  if (syscall(SYS_capset, &header, sets) != 0) fail("drop capabilities");
}

void rightsAre(std::uint32_t kept, const std::optional<User>& user) {
  dropBoundingSet(kept);
  if (user) userIs(*user);
  capabilitiesAre(kept);
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) fail("refuse new privileges");
}

}  // namespace

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
  const std::string missing = "not permitted to receive and send packets (needs CAP_NET_RAW): ";
  // A file's capabilities have no effect then, as in the unit of the service.
  if (prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1) {
    return missing + "a unit of systemd grants it with AmbientCapabilities=CAP_NET_RAW";
  }
  std::error_code failed;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", failed);
  const std::string path = failed ? "igmpq" : self.string();
  return missing + "run it as root, or grant it once with `sudo setcap cap_net_raw+ep " + path +
         "`";
}

// A descriptor each for a thousand interfaces is more than shells allow by default.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

void keepPacketRightOnly(const std::optional<User>& user) { rightsAre(1u << CAP_NET_RAW, user); }

void keepNoRight() { rightsAre(0, std::nullopt); }

}  // namespace Agent
