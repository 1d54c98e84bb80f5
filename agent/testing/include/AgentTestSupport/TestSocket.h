// For tests: one end of a Unix stream socket, which the test uses. Reading does not block.
//
//   TestSocket client = TestSocket::connectedTo(path);
//   client.send("{}\n");
//   EXPECT_EQ(client.received(), "{\"error\":...}\n");
#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Agent {

class TestSocket {
 public:
  explicit TestSocket(int fd) : fd_(fd) {}
  ~TestSocket() { close(); }
  TestSocket(TestSocket&& other) noexcept
      : fd_(std::exchange(other.fd_, -1)), isEnded_(other.isEnded_) {}
  TestSocket(const TestSocket&) = delete;
  TestSocket& operator=(const TestSocket&) = delete;

  static TestSocket connectedTo(const std::string& path) {
    TestSocket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressOf(path);
    EXPECT_EQ(::connect(socket.fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
              0);
    return socket;
  }
  // A socket that serves the path, but accepts no connection yet.
  static TestSocket servingAt(const std::string& path) {
    TestSocket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressOf(path);
    EXPECT_EQ(::bind(socket.fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(::listen(socket.fd_, 8), 0);
    return socket;
  }
  // The next connection that waits to be accepted.
  TestSocket accepted() { return TestSocket(::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC)); }

  int fd() const { return fd_; }
  int released() { return std::exchange(fd_, -1); }
  void close() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }
  void endOutput() { ::shutdown(fd_, SHUT_WR); }
  // How many bytes the socket took.
  size_t send(const std::string& bytes) {
    const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent < 0 ? 0 : static_cast<size_t>(sent);
  }
  // At most `most` of the bytes that are waiting.
  std::string received(size_t most = static_cast<size_t>(-1)) {
    std::string all;
    std::array<char, 4096> bytes;
    while (all.size() < most) {
      const size_t wanted = std::min(bytes.size(), most - all.size());
      const ssize_t got = ::recv(fd_, bytes.data(), wanted, MSG_DONTWAIT);
      if (got <= 0) {
        isEnded_ = isEnded_ || got == 0 || (errno != EAGAIN && errno != EINTR);
        break;
      }
      all.append(bytes.data(), static_cast<size_t>(got));
    }
    return all;
  }
  // True when the end of the stream was read: the other end has closed.
  bool isEnded() const { return isEnded_; }

 private:
  static sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
  }

  int fd_;
  bool isEnded_ = false;
};

}  // namespace Agent
