// The steps that serving and connecting Unix stream sockets have in common.
#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

#include <sys/socket.h>
#include <sys/un.h>

#include <Local/Descriptor.h>

namespace Agent {

inline std::string errorText(int error) { return std::generic_category().message(error); }

[[noreturn]] inline void failWithErrno() { throw std::runtime_error(errorText(errno)); }

inline sockaddr_un unixAddress(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof(address.sun_path)) {
    throw std::runtime_error("the path is too long for a socket");
  }
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

inline const sockaddr* genericAddress(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

inline Descriptor newUnixSocket() {
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.isOpen()) failWithErrno();
  return socket;
}

// The error number; 0 when it is connected.
inline int connectError(const Descriptor& socket, const std::string& path) {
  const sockaddr_un address = unixAddress(path);
  return ::connect(socket.fd(), genericAddress(address), sizeof(address)) == 0 ? 0 : errno;
}

}  // namespace Agent
