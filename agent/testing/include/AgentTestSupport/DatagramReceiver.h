// For tests: the socket of a program that datagrams are sent to. Its queue is as short as the
// kernel's setting net.unix.max_dgram_qlen, and nothing is read until the test does so.
//
//   DatagramReceiver receiver(folder.path() + "/socket");
//   EXPECT_EQ(receiver.received(), "READY=1\n");
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <Local/Descriptor.h>

namespace Agent {

class DatagramReceiver {
 public:
  // A path, or after "@" a name that is no file.
  explicit DatagramReceiver(const std::string& address)
      : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un own{};
    own.sun_family = AF_UNIX;
    address.copy(own.sun_path, sizeof(own.sun_path) - 1);
    if (address.front() == '@') own.sun_path[0] = '\0';
    const auto bytes = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
    EXPECT_EQ(::bind(socket_.fd(), reinterpret_cast<const sockaddr*>(&own), bytes), 0);
  }

  // The next datagram; empty when there is none.
  std::string received() {
    std::string bytes(size_t{1} << 18, '\0');
    const ssize_t got = ::recv(socket_.fd(), bytes.data(), bytes.size(), 0);
    bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return bytes;
  }
  std::vector<std::string> all() {
    std::vector<std::string> datagrams;
    for (std::string next = received(); !next.empty(); next = received()) {
      datagrams.push_back(next);
    }
    return datagrams;
  }

 private:
  Descriptor socket_;
};

}  // namespace Agent
