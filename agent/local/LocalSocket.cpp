#include <Local/LocalSocket.h>

#include <cerrno>

#include <fmt/format.h>

#include "UnixAddress.h"

namespace Agent {

namespace {

std::string connectErrorText(const std::string& path, int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
      return fmt::format(
          "no agent is running: nobody serves {}; start one with `systemctl start igmpq` or `igmpq "
          "run`, or name another one's with --socket",
          path);
    case EACCES:
      return fmt::format(
          "not permitted to connect to the agent at {}: its folder is closed to this user; be root "
          "or the user that the agent runs as",
          path);
    case EAGAIN:
      return fmt::format("the agent at {} does not accept connections: it may hang", path);
    default: return fmt::format("cannot connect to the agent at {}: {}", path, errorText(error));
  }
}

}  // namespace

Descriptor connectToAgent(const std::string& path) {
  Descriptor socket;
  int error = 0;
  try {
    socket = newUnixSocket();
    error = connectError(socket, path);
  } catch (const std::runtime_error& failed) {
    throw ConnectError(fmt::format("cannot connect to the agent at {}: {}", path, failed.what()));
  }
  if (error != 0) throw ConnectError(connectErrorText(path, error));
  return socket;
}

}  // namespace Agent
