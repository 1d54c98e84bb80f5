// A file descriptor with one owner, which closes it.
//
//   Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
//   if (!socket.isOpen()) ...
#pragma once

#include <utility>

namespace Agent {

class Descriptor {
 public:
  Descriptor() = default;
  // Takes over what a system call returned; a negative number is none.
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : fd_(other.released()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this == &other) return *this;
    close();
    fd_ = other.released();
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool isOpen() const { return fd_ >= 0; }
  int fd() const { return fd_; }
  // The caller closes it from here on.
  int released() { return std::exchange(fd_, -1); }
  void close();

 private:
  int fd_ = -1;
};

}  // namespace Agent
