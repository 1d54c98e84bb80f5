#include "AttrLogPeer.h"

#include <utility>

#include <Local/LocalPeer.h>
#include <Mox/ActivityClock.h>
#include <Settings/ConfigWrites.h>

namespace Agent {

AttrLogPeer::AttrLogPeer(boost::asio::io_context& io, Descriptor socket,
                         Mox::NboAttrLog::Directory& directory, const Setup& setup,
                         Handlers handlers)
    : LocalConnection(io, std::move(socket)),
      handlers_(std::move(handlers)),
      name_(peerName(fd())),
      connectedSince_(Mox::now()),
      stallTimeout_(setup.stallTimeout),
      session_(*this, {.name = setup.name, .peerName = name_, .rights = setup.rights}, &directory),
      arrears_(setup.stallTimeout) {}

bool AttrLogPeer::isTooSlow() {
  return arrears_.isTooSlow(
      Mox::now(),
      {.sent = bytesSent(), .sends = sends(), .queued = bytesQueued(), .isBlocked = isBlocked()});
}

// The turn before it lets timers that a change arms count from the real now.
void AttrLogPeer::handleInput(std::string_view bytes) {
  handlers_.turn();
  if (!isOpen()) return;  // the turn may have disconnected it
  const bool goesOn =
      session_.input({reinterpret_cast<const Mox::U8*>(bytes.data()), bytes.size()});
  handlers_.turn();
  if (goesOn || !isOpen()) return;
  sendOnce();  // the peer may want to know why
  handlers_.onEnded(*this, session_.fault());
}

void AttrLogPeer::handleInputEnd() { handlers_.onEnded(*this, {}); }

std::string_view AttrLogPeer::output() {
  session_.drain();
  const auto pending = session_.stream().pending();
  return {reinterpret_cast<const char*>(pending.data()), pending.size()};
}

std::string AttrLogPeer::whyRefused(const Mox::EntityBase& entity,
                                    std::span<const Mox::NboAttrLog::Written> values) {
  return whyConfigRefused(entity, values);
}

}  // namespace Agent
