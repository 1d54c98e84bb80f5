// The folder of a socket, opened so that what was checked is what is used.
//
// Another user who could rename a folder above it, or put another one in its place, could put a
// socket of their own in the place of the agent's. So each folder on the way, and each symbolic
// link, must belong to root or to this user, and nobody else may write to a folder, unless its
// sticky bit keeps them from renaming what belongs to others.
//
//   const SocketFolder folder = openedSocketFolder("/run/igmpq/attrlog.sock");
//   ::openat(folder.opened.fd(), ...);
#pragma once

#include <string>

#include <sys/stat.h>

#include <Local/Descriptor.h>

namespace Agent {

// Of the files that are made while it exists: a mode that is set later would leave a gap.
class FileMask {
 public:
  explicit FileMask(mode_t mask) : before_(umask(mask)) {}
  ~FileMask() { umask(before_); }
  FileMask(const FileMask&) = delete;
  FileMask& operator=(const FileMask&) = delete;

 private:
  const mode_t before_;
};

struct SocketFolder {
  Descriptor opened;  // for its path only (O_PATH)
  bool isNew = false;
};

// The folder that this path names a socket in.
std::string socketFolderPath(const std::string& path);

// Creates it with all folders above it, 0755, where they are missing. The folder itself may be
// anyone's, but no symbolic link. Throws std::runtime_error with the reason and a remedy.
SocketFolder openedSocketFolder(const std::string& path);

}  // namespace Agent
