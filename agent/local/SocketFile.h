// A Unix stream socket that accepts connections of every user at a path, while it exists.
//
// Its file appears with its final mode, 0666: the rights of a process come from its credentials,
// not from the file. Nobody else may replace the file, so its folder belongs to this user alone,
// and the folders above it to this user or root.
// A lock beside it, PATH.lock, keeps other agents away; the file that a killed agent left is
// replaced. Both are removed with this object, unless another file has taken their place.
//
//   const SocketFile socket("/run/igmpq/attrlog.sock");
//   ::accept4(socket.fd(), ...)
#pragma once

#include <string>

#include <sys/types.h>

#include <Local/Descriptor.h>

namespace Agent {

class SocketFile {
 public:
  // Creates the folder, 0755, where it is missing. Throws std::runtime_error with the reason and a
  // remedy.
  explicit SocketFile(const std::string& path);
  ~SocketFile();
  SocketFile(const SocketFile&) = delete;
  SocketFile& operator=(const SocketFile&) = delete;

  int fd() const { return socket_.fd(); }

 private:
  // A file of the folder, to be recognised at the end.
  struct Made {
    std::string name;
    dev_t device = 0;
    ino_t number = 0;
  };

  Descriptor lockedFile();
  Descriptor servingSocket();
  std::string pathInFolder() const;
  void removeStale() const;
  bool isThere(const Made& file) const;
  void remove(const Made& file) const;

  const std::string path_;
  const Descriptor folder_;
  Made lockFile_;
  Made socketFile_;
  Descriptor lock_;
  Descriptor socket_;
};

}  // namespace Agent
