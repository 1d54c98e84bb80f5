// Waiting for room in a file that takes bytes slowly.
#pragma once

#include <cerrno>
#include <chrono>

#include <poll.h>

namespace Agent {

// At most that long. False when there is none, or when the file has failed.
inline bool isWritableWithin(int fd, std::chrono::milliseconds patience) {
  pollfd wait{.fd = fd, .events = POLLOUT, .revents = 0};
  int ready = 0;
  do {
    ready = poll(&wait, 1, static_cast<int>(patience.count()));
  } while (ready < 0 && errno == EINTR);
  return ready > 0 && (wait.revents & POLLOUT) != 0;
}

}  // namespace Agent
