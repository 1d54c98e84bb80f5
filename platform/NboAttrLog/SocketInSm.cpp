#include <NboAttrLog/SocketInSm.h>

#include <array>
#include <cerrno>

#include <sys/socket.h>

namespace Mox::NboAttrLog {

Moved SocketInSm::handleReadable() {
  std::array<U8, atOnce> bytes;
  ssize_t got = 0;
  do {
    got = ::recv(connectionFd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
  } while (got < 0 && errno == EINTR);
  if (got < 0) return errno == EAGAIN || errno == EWOULDBLOCK ? Moved::blocked : Moved::ended;
  if (got == 0) return Moved::ended;
  return session_.input({bytes.data(), static_cast<size_t>(got)}) ? Moved::all : Moved::ended;
}

}  // namespace Mox::NboAttrLog
