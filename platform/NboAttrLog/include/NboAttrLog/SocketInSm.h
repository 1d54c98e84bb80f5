// The machine that reads the attribute log from a socket: called when the socket can be read, it
// receives the available bytes, up to a bound, and passes them to a session. It neither waits nor
// owns the descriptor.
#pragma once

#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>
#include <NboAttrLog/Session.h>
#include <NboAttrLog/SocketOutSm.h>

namespace Mox::NboAttrLog {

class MOX_PUBLIC SocketInSm final : public RefCounted {
 public:
  // The most bytes of one call, so that one peer cannot keep the host's loop from its other work.
  static constexpr size_t atOnce = size_t{16} * 1024;

  // `session` outlives the machine.
  SocketInSm(int connectionFd, Session& session) : connectionFd_(connectionFd), session_(session) {}

  // `all` when more bytes may be available at once, `blocked` when there are none now.
  Moved handleReadable();

 private:
  const int connectionFd_;
  Session& session_;
};

}  // namespace Mox::NboAttrLog
