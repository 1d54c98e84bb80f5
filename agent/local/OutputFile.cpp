#include <Local/OutputFile.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Writable.h"

namespace Agent {

namespace {

// A writable terminal may have room for a single byte only. So the flag that others share is set
// for as long as this takes.
ssize_t writeToTerminal(int fd, std::string_view text) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) return 0;
  const ssize_t done = ::write(fd, text.data(), text.size());
  fcntl(fd, F_SETFL, flags);
  return done;
}

}  // namespace

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
  if (own_.isOpen()) {
    kind_ = Kind::nonBlocking;
    fd_ = own_.fd();
  } else {
    kind_ = isatty(fd) != 0 ? Kind::terminal : Kind::pipe;
  }
}

std::size_t OutputFile::write(std::string_view text) {
  std::size_t taken = 0;
  while (taken < text.size()) {
    const ssize_t done = writeSome(text.substr(taken));
    if (done <= 0) break;
    taken += static_cast<std::size_t>(done);
  }
  return taken;
}

ssize_t OutputFile::writeSome(std::string_view text) const {
  switch (kind_) {
    case Kind::socket: return ::send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    case Kind::pipe:
      // A pipe that is writable takes as much as this without waiting.
      if (!waitWritable(std::chrono::milliseconds(0))) return 0;
      return ::write(fd_, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    case Kind::terminal: return writeToTerminal(fd_, text);
    default: return ::write(fd_, text.data(), text.size());
  }
}

bool OutputFile::waitWritable(std::chrono::milliseconds patience) const {
  return isWritableWithin(fd_, patience);
}

}  // namespace Agent
