// The machine that reads the attribute log from a socket: called when the socket can be read, it
// takes what is there, up to a bound, and gives it to a session. It neither waits nor owns the
// descriptor.
#pragma once

#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>
#include <NboAttrLog/Session.h>
#include <NboAttrLog/SocketOutSm.h>

namespace Mox::NboAttrLog {

class MOX_PUBLIC SocketInSm final : public RefCounted {
 public:
  // Bytes taken in one call, so that one busy peer does not hold up the host's loop.
  static constexpr size_t atOnce = size_t{16} * 1024;

  // `session` outlives the machine.
  SocketInSm(int connectionFd, Session& session) : connectionFd_(connectionFd), session_(session) {}

  // `all` when there may be more at once, `blocked` when there is nothing now.
  Moved handleReadable();

 private:
  const int connectionFd_;
  Session& session_;
};

}  // namespace Mox::NboAttrLog
