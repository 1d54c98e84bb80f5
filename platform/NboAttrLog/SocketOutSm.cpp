#include <NboAttrLog/SocketOutSm.h>

#include <cerrno>

#include <sys/socket.h>

namespace Mox::NboAttrLog {

Moved StreamSocketOutSm::handleWritable() {
  while (!out_.pending().empty()) {
    const auto waiting = out_.pending();
    const ssize_t taken =
        ::send(connectionFd_, waiting.data(), waiting.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (taken < 0) {
      if (errno == EINTR) continue;
      return errno == EAGAIN || errno == EWOULDBLOCK ? Moved::blocked : Moved::ended;
    }
    out_.taken(static_cast<size_t>(taken));
    bytesTaken_ += static_cast<U64>(taken);
  }
  return Moved::all;
}

}  // namespace Mox::NboAttrLog
