#include "AttrLogPeer.h"

#include <utility>

#include <sys/ioctl.h>

#include <Mox/ActivityClock.h>
#include <Settings/ConfigWrites.h>
#include <boost/asio/post.hpp>

#include <Local/LocalPeer.h>

namespace Agent {

using Mox::NboAttrLog::Moved;

AttrLogServer::Peer::Peer(AttrLogServer& server, Socket socket)
    : server_(server),
      socket_(std::move(socket)),
      name_(peerName(socket_.native_handle())),
      connectedSince_(Mox::now()),
      session_(
          *this,
          {.name = "igmpq run", .peerName = name_, .rights = peerRights(socket_.native_handle())},
          &server.directory_),
      out_(Mox::makePtr<Mox::NboAttrLog::StreamSocketOutSm>(socket_.native_handle(),
                                                            session_.stream())),
      in_(Mox::makePtr<Mox::NboAttrLog::SocketInSm>(socket_.native_handle(), session_)) {}

void AttrLogServer::Peer::start() {
  onOutput();  // the hello
  waitReadable();
}

void AttrLogServer::Peer::close() {
  open_ = false;
  boost::system::error_code ignored;
  socket_.close(ignored);
}

int AttrLogServer::Peer::queued() {
  int bytes = 0;
  return open_ && ioctl(fd(), TIOCOUTQ, &bytes) == 0 ? bytes : 0;
}

Mox::Seconds AttrLogServer::Peer::stalledSince() {
  const int now = queued();
  const bool waits = now != 0 || !session_.stream().pending().empty();
  const bool took = out_->bytesTaken() != takenSeen_ || now < queuedSeen_;
  takenSeen_ = out_->bytesTaken();
  queuedSeen_ = now;
  if (!waits || took) {
    since_ = Mox::never;
  } else if (since_ == Mox::never) {
    since_ = Mox::now();
  }
  return since_;
}

// What is built while the loop does one thing goes out together afterwards.
void AttrLogServer::Peer::onOutput() {
  if (!open_ || std::exchange(flushDue_, true)) return;
  boost::asio::post(server_.io_, [self = weak_from_this()] {
    if (const auto peer = self.lock()) peer->flush();
  });
}

std::string AttrLogServer::Peer::whyRefused(const Mox::EntityBase& entity,
                                            std::span<const Mox::NboAttrLog::Written> values) {
  return whyConfigRefused(entity, values);
}

void AttrLogServer::Peer::waitReadable() {
  socket_.async_wait(Socket::wait_read, [self = weak_from_this()](const auto& failed) {
    const auto peer = self.lock();
    if (peer && !failed) peer->handleReadable();
  });
}

void AttrLogServer::Peer::waitWritable() {
  socket_.async_wait(Socket::wait_write, [self = weak_from_this()](const auto& failed) {
    const auto peer = self.lock();
    if (peer && !failed) peer->flush();
  });
}

void AttrLogServer::Peer::handleReadable() {
  if (!open_) return;
  server_.turn_();  // timers that a change arms count from the real now
  const Moved moved = in_->handleReadable();
  server_.turn_();
  if (moved != Moved::ended) return waitReadable();
  out_->handleWritable();  // the peer may want to know why
  end(session_.fault());
}

// One buffer at a time: what is left waits until the loop has seen to packets and timers.
void AttrLogServer::Peer::flush() {
  flushDue_ = false;
  if (!open_) return;
  session_.drain();
  const Moved moved = out_->handleWritable();
  if (moved == Moved::ended) return end({});
  const bool wasBlocked = std::exchange(blocked_, moved == Moved::blocked);
  if (blocked_) {
    flushDue_ = true;
    waitWritable();
    server_.watch(*this);
    return;
  }
  // What others wait for is not to be judged by a socket that flows again.
  if (wasBlocked) server_.watchMostCongested();
  if (!session_.allSent() && session_.greeted()) onOutput();
}

void AttrLogServer::Peer::end(const std::string& why) {
  const auto alive = shared_from_this();
  server_.peerDel(*this, why);
}

}  // namespace Agent
