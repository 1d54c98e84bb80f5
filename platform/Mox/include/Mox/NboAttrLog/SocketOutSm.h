// The machine that writes the attribute log to a socket, as far as others need to know it: which
// descriptor the log goes to.
#pragma once

#include <Mox/Export.h>
#include <Mox/Ptr.h>

namespace Mox::NboAttrLog {

class MOX_PUBLIC SocketOutSm : public RefCounted {
 public:
  // The descriptor that the machine was given to hold; 0 when it was given none.
  virtual int sockFd() const = 0;
  // The descriptor of the current connection; negative when there is none.
  virtual int connectionFd() const = 0;
};

}  // namespace Mox::NboAttrLog
