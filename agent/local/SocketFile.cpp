#include "SocketFile.h"

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "SocketFolder.h"
#include "UnixAddress.h"

namespace Agent {

namespace {

constexpr const char* otherAgent = "another agent serves there; choose another path with --socket";

std::string nameIn(const std::string& path) { return std::filesystem::path(path).filename(); }

// Another user who can write to the folder could put a socket of their own in the place of this
// one, and read and answer what the clients send.
void checkFolder(const struct stat& status, const std::string& path) {
  const std::filesystem::path folder = socketFolderPath(path);
  if (status.st_uid != geteuid()) {
    throw std::runtime_error(fmt::format(
        "{} belongs to user {}, this agent runs as user {}; `chown {} {}`, or choose another path "
        "with --socket",
        folder.string(), status.st_uid, geteuid(), geteuid(), folder.string()));
  }
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    throw std::runtime_error(fmt::format(
        "other users can write to {}; choose a path in a folder of this user alone, such as "
        "--socket {}, which is made",
        folder.string(), (folder / "igmpq" / nameIn(path)).string()));
  }
}

Descriptor checkedFolder(const std::string& path) {
  SocketFolder folder = openedSocketFolder(path);
  struct stat status {};
  if (fstat(folder.opened.fd(), &status) != 0) failWithErrno();
  checkFolder(status, path);
  return std::move(folder.opened);
}

}  // namespace

SocketFile::SocketFile(const std::string& path)
    : path_(path), folder_(checkedFolder(path)), lock_(lockedFile()) {
  try {
    socket_ = servingSocket();
  } catch (...) {
    remove(socketFile_);
    remove(lockFile_);
    throw;
  }
}

// The lock file goes while it is locked: another agent that has opened it finds that it is gone.
SocketFile::~SocketFile() {
  remove(socketFile_);
  remove(lockFile_);
}

// The agent before may have removed the file between the two calls: a lock on a file without a name
// keeps nobody away.
Descriptor SocketFile::lockedFile() {
  lockFile_.name = nameIn(path_) + ".lock";
  for (;;) {
    Descriptor file(::openat(folder_.fd(), lockFile_.name.c_str(),
                             O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.isOpen()) {
      throw std::runtime_error(
          fmt::format("{}.lock: {}; remove it if no agent serves there", path_, errorText(errno)));
    }
    if (flock(file.fd(), LOCK_EX | LOCK_NB) != 0) {
      if (errno == EWOULDBLOCK) throw std::runtime_error(otherAgent);
      failWithErrno();
    }
    struct stat status {};
    if (fstat(file.fd(), &status) != 0) failWithErrno();
    lockFile_.device = status.st_dev;
    lockFile_.number = status.st_ino;
    if (isThere(lockFile_)) return file;
  }
}

// The folder that was opened, and no other that has taken its place since.
std::string SocketFile::pathInFolder() const {
  return fmt::format("/proc/self/fd/{}/{}", folder_.fd(), nameIn(path_));
}

Descriptor SocketFile::servingSocket() {
  unixAddress(path_);  // clients use this path: it must not be too long for them
  const sockaddr_un address = unixAddress(pathInFolder());
  removeStale();
  Descriptor socket = newUnixSocket();
  {
    const FileMask mask(S_IXUSR | S_IXGRP | S_IXOTH);
    if (::bind(socket.fd(), genericAddress(address), sizeof(address)) != 0) failWithErrno();
  }
  socketFile_.name = nameIn(path_);
  struct stat status {};
  if (fstatat(folder_.fd(), socketFile_.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    failWithErrno();
  }
  socketFile_.device = status.st_dev;
  socketFile_.number = status.st_ino;
  if (::listen(socket.fd(), SOMAXCONN) != 0) failWithErrno();
  return socket;
}

// Where connections are refused, no process serves the socket any more.
void SocketFile::removeStale() const {
  struct stat status {};
  const std::string name = nameIn(path_);
  if (fstatat(folder_.fd(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return;
    failWithErrno();
  }
  if (!S_ISSOCK(status.st_mode)) {
    throw std::runtime_error(
        fmt::format("{} is not a socket; remove it, or choose another path with --socket", path_));
  }
  const int error = connectError(newUnixSocket(), pathInFolder());
  if (error != ECONNREFUSED) throw std::runtime_error(otherAgent);
  if (::unlinkat(folder_.fd(), name.c_str(), 0) != 0) failWithErrno();
}

bool SocketFile::isThere(const Made& file) const {
  struct stat status {};
  return fstatat(folder_.fd(), file.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         status.st_dev == file.device && status.st_ino == file.number;
}

void SocketFile::remove(const Made& file) const {
  if (!file.name.empty() && isThere(file)) ::unlinkat(folder_.fd(), file.name.c_str(), 0);
}

}  // namespace Agent
