#include "CongestedSocket.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace Agent::Scenario {

namespace {
constexpr int sendBuffer = 16384;  // small, so that filling it is quick
}

CongestedSocket::CongestedSocket() {
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends_) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  setsockopt(ends_[0], SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
}

CongestedSocket::~CongestedSocket() {
  close(ends_[0]);
  close(ends_[1]);
}

void CongestedSocket::congestedIs(bool on) {
  std::array<char, 1024> bytes{};
  if (on) {
    while (write(ends_[0], bytes.data(), bytes.size()) > 0) {
    }
  } else {
    while (read(ends_[1], bytes.data(), bytes.size()) > 0) {
    }
  }
}

}  // namespace Agent::Scenario
