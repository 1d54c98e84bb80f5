#include <Local/LocalSocket.h>

#include <cerrno>

#include <fmt/format.h>

#include "UnixAddress.h"

namespace Agent {

namespace {

struct Server {
  const char* name;
  const char* start;  // how one is started, or another one is named
};
constexpr Server agentServer{.name = "agent",
                             .start =
                                 "`systemctl start igmpq` or `igmpq run`, or name another "
                                 "one's with --socket"};
constexpr Server storeServer{.name = "store",
                             .start = "`systemctl start igmpq-store` or `igmpq store`"};

std::string connectErrorText(const Server& server, const std::string& path, int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
      return fmt::format("no {} is running: nobody serves {}; start one with {}", server.name, path,
                         server.start);
    case EACCES:
      return fmt::format(
          "not permitted to connect to the {0} at {1}: its folder is closed to this user; be root "
          "or the user that the {0} runs as",
          server.name, path);
    case EAGAIN:
      return fmt::format("the {} at {} does not accept connections: it may hang", server.name,
                         path);
    default:
      return fmt::format("cannot connect to the {} at {}: {}", server.name, path, errorText(error));
  }
}

Descriptor connectTo(const Server& server, const std::string& path) {
  Descriptor socket;
  int error = 0;
  try {
    socket = newUnixSocket();
    error = connectError(socket, path);
  } catch (const std::runtime_error& failed) {
    throw ConnectError(
        fmt::format("cannot connect to the {} at {}: {}", server.name, path, failed.what()));
  }
  if (error != 0) throw ConnectError(connectErrorText(server, path, error));
  return socket;
}

}  // namespace

Descriptor connectToAgent(const std::string& path) { return connectTo(agentServer, path); }

Descriptor connectToStore(const std::string& path) { return connectTo(storeServer, path); }

}  // namespace Agent
