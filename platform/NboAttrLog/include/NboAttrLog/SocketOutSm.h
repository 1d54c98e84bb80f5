// The machine that writes the attribute log to a socket.
//
// SocketOutSm gives others the descriptor that the log is written to. StreamSocketOutSm is the
// machine itself: called when the socket can be written, it sends the bytes that wait in the
// stream, as many as the socket takes. It neither waits nor owns the descriptor.
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

// The result of an attempt to move bytes.
enum class Moved : U8 {
  all,      // all bytes were moved
  blocked,  // the socket is not ready: call again when it is
  ended,    // the connection is over
};

class MOX_PUBLIC StreamSocketOutSm final : public SocketOutSm {
 public:
  // `out` outlives the machine.
  StreamSocketOutSm(int connectionFd, OutStream& out) : connectionFd_(connectionFd), out_(out) {}

  int sockFd() const override { return 0; }
  int connectionFd() const override { return connectionFd_; }

  // The socket may be ready: sends the waiting bytes.
  Moved handleWritable();
  // The number of bytes that the socket took from this machine.
  U64 bytesTaken() const { return bytesTaken_; }

 private:
  const int connectionFd_;
  OutStream& out_;
  U64 bytesTaken_ = 0;
};

}  // namespace Mox::NboAttrLog
