#include <Local/LocalSocket.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <Local/AgentErrors.h>

namespace Agent {

namespace {

std::string errorText(int error) { return std::generic_category().message(error); }

Descriptor newSocket() {
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.isOpen()) throw std::runtime_error(errorText(errno));
  return socket;
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof(address.sun_path)) {
    throw std::runtime_error("the path is too long for a socket");
  }
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

// The error number; 0 when it is connected.
int connected(const Descriptor& socket, const std::string& path) {
  const sockaddr_un address = addressOf(path);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  return ::connect(socket.fd(), generic, sizeof(address)) == 0 ? 0 : errno;
}

std::string connectErrorText(const std::string& path, int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
      return fmt::format(
          "no agent is running: nobody serves {}; start one with `sudo igmpq run --all`, or name "
          "another one's with --socket",
          path);
    case EACCES: return notPermittedText(fmt::format("connect to the agent at {}", path));
    case EAGAIN:
      return fmt::format("the agent at {} does not accept connections: it may hang", path);
    default: return fmt::format("cannot connect to the agent at {}: {}", path, errorText(error));
  }
}

// Where connections are refused, no process serves the socket any more.
void removeStale(const std::string& path) {
  const int error = connected(newSocket(), path);
  if (error == 0 || error == EAGAIN) {
    throw std::runtime_error("another agent serves there; choose another path with --socket");
  }
  if (error == ECONNREFUSED) std::filesystem::remove(path);
}

}  // namespace

Descriptor connectToAgent(const std::string& path) {
  Descriptor socket;
  int error = 0;
  try {
    socket = newSocket();
    error = connected(socket, path);
  } catch (const std::runtime_error& failed) {
    throw ConnectError(fmt::format("cannot connect to the agent at {}: {}", path, failed.what()));
  }
  if (error != 0) throw ConnectError(connectErrorText(path, error));
  return socket;
}

Descriptor servingSocket(const std::string& path) {
  const sockaddr_un address = addressOf(path);
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  try {
    if (!folder.empty()) std::filesystem::create_directories(folder);
    removeStale(path);
    Descriptor socket = newSocket();
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    if (::bind(socket.fd(), generic, sizeof(address)) != 0) {
      throw std::runtime_error(errorText(errno));
    }
    std::filesystem::permissions(path, std::filesystem::perms(0660));
    if (::listen(socket.fd(), SOMAXCONN) != 0) throw std::runtime_error(errorText(errno));
    return socket;
  } catch (const std::system_error& error) {
    throw std::runtime_error(error.code().message());
  }
}

}  // namespace Agent
