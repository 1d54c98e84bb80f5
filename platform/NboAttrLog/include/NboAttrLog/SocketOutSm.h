// The machine that writes the attribute log to a socket.
//
// Others know of it which descriptor the log goes to. StreamSocketOutSm is the machine itself:
// called when the socket can be written, it hands over what waits in the stream, as much as the
// socket takes. It neither waits nor owns the descriptor.
#pragma once

#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/OutStream.h>

namespace Mox::NboAttrLog {

class MOX_PUBLIC SocketOutSm : public RefCounted {
 public:
  static constexpr const char* valueTypeName = "Mox::NboAttrLog::SocketOutSm";

  // The descriptor that the machine was given to hold; 0 when it was given none.
  virtual int sockFd() const = 0;
  // The descriptor of the current connection; negative when there is none.
  virtual int connectionFd() const = 0;
};

// What became of an attempt to move bytes.
enum class Moved : U8 {
  all,      // nothing is left to move now
  blocked,  // the socket takes no more now: call again when it is ready
  ended,    // the connection is over
};

class MOX_PUBLIC StreamSocketOutSm final : public SocketOutSm {
 public:
  // `out` outlives the machine.
  StreamSocketOutSm(int connectionFd, OutStream& out) : connectionFd_(connectionFd), out_(out) {}

  int sockFd() const override { return 0; }
  int connectionFd() const override { return connectionFd_; }

  // The socket may be ready: gives it what waits.
  Moved handleWritable();
  // Bytes that the socket took since the machine exists.
  U64 bytesTaken() const { return bytesTaken_; }

 private:
  const int connectionFd_;
  OutStream& out_;
  U64 bytesTaken_ = 0;
};

}  // namespace Mox::NboAttrLog
