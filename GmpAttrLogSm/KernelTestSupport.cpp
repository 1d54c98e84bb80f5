#include "KernelTestSupport.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <stdexcept>
#include <vector>

namespace Gmp::Igmp {

Kernel kernel;

namespace {

void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

}  // namespace

Stream::~Stream() {
  close(near_);
  close(far_);
}

int Stream::sendBuffer() const {
  int size = 0;
  socklen_t length = sizeof size;
  require(syscall(SYS_getsockopt, near_, SOL_SOCKET, SO_SNDBUF, &size, &length) == 0, "getsockopt");
  return size;
}

int Stream::queued() const {
  int bytes = -1;
  require(syscall(SYS_ioctl, near_, TIOCOUTQ, &bytes) == 0, "ioctl");
  return bytes;
}

void Stream::sendBufferIs(int bytes) const {
  require(setsockopt(near_, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes) == 0, "setsockopt");
}

void Stream::fill() const {
  const std::vector<char> bytes(1024);
  while (send(near_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
  }
}

void Stream::drain() const {
  std::vector<char> bytes(65536);
  while (queued() > 0) {
    // Nothing is readable while the last acknowledgement is under way.
    pollfd readable{far_, POLLIN, 0};
    if (poll(&readable, 1, 10) == 1) {
      require(recv(far_, bytes.data(), bytes.size(), MSG_DONTWAIT) > 0, "recv");
    }
  }
}

SocketPair::SocketPair(int sendBuffer) {
  int ends[2];
  require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
  near_ = ends[0];
  far_ = ends[1];
  if (sendBuffer > 0) sendBufferIs(sendBuffer);
}

TcpPair::TcpPair(int sendBuffer) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int small = 4096;
  // Accepted sockets inherit it; set later, it would not bound the window that was announced.
  require(setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &small, sizeof small) == 0, "setsockopt");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t length = sizeof address;
  require(bind(listener, generic, length) == 0, "bind");
  require(listen(listener, 1) == 0, "listen");
  require(getsockname(listener, generic, &length) == 0, "getsockname");
  near_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sendBufferIs(sendBuffer);
  require(connect(near_, generic, length) == 0, "connect");
  far_ = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  require(far_ >= 0, "accept");
  close(listener);
}

}  // namespace Gmp::Igmp

// The two calls that the monitor makes. In the test program they hide those of the C library, and
// make the system call unless a test has given an answer.

using Gmp::Igmp::kernel;

// The C library's own names for the parameters are reserved ones.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int getsockopt(int fd, int level, int option, void* value, socklen_t* length) noexcept {
  const bool size = level == SOL_SOCKET && option == SO_SNDBUF;
  if (size) ++kernel.sizeQueries;
  if (size && kernel.reportedSize) {
    *static_cast<int*>(value) = *kernel.reportedSize;
    return 0;
  }
  return static_cast<int>(syscall(SYS_getsockopt, fd, level, option, value, length));
}

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (request == TIOCOUTQ) ++kernel.usageQueries;
  if (request == TIOCOUTQ && kernel.reportedUsage) {
    *static_cast<int*>(argument) = *kernel.reportedUsage;
    return 0;
  }
  return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}
