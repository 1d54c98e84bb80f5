#include <Local/OutputFile.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Agent {

// Opened again, a pipe or a terminal has flags of its own. A regular file would have a position of
// its own, too; it never waits.
OutputFile::OutputFile(int fd) : fd_(fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0 || S_ISREG(status.st_mode)) return;
  if (S_ISSOCK(status.st_mode)) {
    kind_ = Kind::socket;
    return;
  }
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  own_ = Descriptor(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  kind_ = own_.isOpen() ? Kind::nonBlocking : Kind::polled;
  if (own_.isOpen()) fd_ = own_.fd();
}

std::size_t OutputFile::write(std::string_view text) {
  std::size_t taken = 0;
  while (taken < text.size()) {
    std::string_view rest = text.substr(taken);
    ssize_t done = 0;
    if (kind_ == Kind::socket) {
      done = ::send(fd_, rest.data(), rest.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    } else {
      if (kind_ == Kind::polled) {
        // A pipe that is writable takes as much as this without waiting.
        if (!waitWritable(std::chrono::milliseconds(0))) break;
        rest = rest.substr(0, PIPE_BUF);
      }
      done = ::write(fd_, rest.data(), rest.size());
    }
    if (done <= 0) break;
    taken += static_cast<std::size_t>(done);
  }
  return taken;
}

bool OutputFile::waitWritable(std::chrono::milliseconds patience) const {
  pollfd wait{.fd = fd_, .events = POLLOUT, .revents = 0};
  int ready = 0;
  do {
    ready = poll(&wait, 1, static_cast<int>(patience.count()));
  } while (ready < 0 && errno == EINTR);
  return ready > 0 && (wait.revents & POLLOUT) != 0;
}

}  // namespace Agent
