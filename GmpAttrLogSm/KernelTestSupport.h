// The kernel for the monitor's tests: real sockets whose queues are really filled, a count of the
// monitor's two system calls, and, where a test needs a number that no kernel can be made to
// report, an answer in its place.
#pragma once

#include <optional>

namespace Gmp::Igmp {

struct Kernel {
  int sizeQueries = 0;              // getsockopt(SO_SNDBUF)
  int usageQueries = 0;             // ioctl(TIOCOUTQ)
  std::optional<int> reportedSize;  // instead of the kernel's own answer
  std::optional<int> reportedUsage;
};
extern Kernel kernel;

// Two ends of a stream; bytes written at the near one wait until the far one is read.
class Stream {
 public:
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream();

  int near() const { return near_; }
  int sendBuffer() const;  // as the kernel reports it
  int queued() const;
  void fill() const;   // until the near end takes no more
  void drain() const;  // until nothing is left to read, and nothing queued

 protected:
  Stream() = default;
  void sendBufferIs(int bytes) const;
  int near_ = -1;
  int far_ = -1;
};

class SocketPair : public Stream {
 public:
  explicit SocketPair(int sendBuffer = 0);  // 0: as the kernel made it
};

// Over the loopback interface, with a small receive buffer at the far end.
class TcpPair : public Stream {
 public:
  explicit TcpPair(int sendBuffer);
};

}  // namespace Gmp::Igmp
