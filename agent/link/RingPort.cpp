#include <Link/RingPort.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <sys/epoll.h>

#include <Link/LinkTable.h>
#include "FrameRing.h"
#include "RxPackets.h"

namespace Agent {

using Mox::U8;

RingPolls::RingPolls() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_.isOpen()) {
    throw std::system_error(errno, std::generic_category(), "cannot wait for packets");
  }
}

void RingPolls::add(RingPort& port) {
  epoll_event wanted{};
  wanted.events = EPOLLIN;
  wanted.data.ptr = &port;
  if (epoll_ctl(epoll_.fd(), EPOLL_CTL_ADD, port.ring_->fd(), &wanted) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot wait for packets");
  }
  port.place_ = idle_.insert(idle_.end(), &port);
}

void RingPolls::remove(RingPort& port) {
  epoll_ctl(epoll_.fd(), EPOLL_CTL_DEL, port.ring_->fd(), nullptr);
  (port.isReady_ ? ready_ : idle_).erase(port.place_);
}

void RingPolls::toReady(RingPort& port) {
  if (std::exchange(port.isReady_, true)) return;
  ready_.splice(ready_.end(), idle_, port.place_);
}

void RingPolls::toIdle(RingPort& port) {
  port.isReady_ = false;
  idle_.splice(idle_.end(), ready_, port.place_);
}

// The kernel puts the rings that it names behind the others.
void RingPolls::addReady() {
  std::array<epoll_event, 64> events;
  const std::size_t ports = idle_.size() + ready_.size();
  std::size_t seen = 0;
  std::size_t got = 0;
  do {
    const int count = epoll_wait(epoll_.fd(), events.data(), events.size(), 0);
    got = static_cast<std::size_t>(std::max(count, 0));
    for (std::size_t i = 0; i < got; ++i) toReady(*static_cast<RingPort*>(events[i].data.ptr));
    seen += got;
  } while (got == events.size() && seen < ports);
}

// A port is idle while it reads, so that it may end then.
void RingPolls::readReady(Mox::Seconds longest) {
  addReady();
  const Mox::Seconds end = Mox::now() + longest;
  while (!ready_.empty() && Mox::now() < end) {
    RingPort& port = *ready_.front();
    toIdle(port);
    if (port.readBlock()) toReady(port);
  }
}

Mox::Seconds RingPolls::backlog() const {
  Mox::Seconds longest = 0.0;
  for (const RingPort* port : ready_) longest = std::max(longest, port->ring_->backlog());
  return longest;
}

RingPort::RingPort(RingPolls& polls, QuerySocket& sender, const Link& link, FrameReceiver& receiver,
                   const RingSize& size)
    : polls_(polls),
      sender_(sender),
      interfaceIndex_(link.index),
      receiver_(receiver),
      ring_(std::make_unique<FrameRing>(link, size)) {
  polls_.add(*this);
}

RingPort::~RingPort() { polls_.remove(*this); }

std::error_code RingPort::send(std::span<const U8> packet) {
  return sender_.send(interfaceIndex_, packet);
}

PortCounts RingPort::counts() {
  PortCounts all = counts_;
  all.lost = ring_->lost();
  return all;
}

// What arrives meanwhile has time.
void RingPort::handOver() {
  for (std::size_t left = ring_->blocks(); left > 0 && readRing(); --left) {
  }
}

bool RingPort::readRing() {
  const auto use = [this](const RingFrame& frame) {
    if (const auto packet = rxPacketOf(frame, counts_)) receiver_.rxPacket(*packet);
  };
  if (!ring_->readBlock(use)) return false;
  receiver_.rxBatchEnd();
  return true;
}

// An interface that is down reports an error and receives again once it is up: netlink reports
// both.
bool RingPort::readBlock() {
  if (readRing()) return true;
  const int error = ring_->error();
  if (error != 0 && error != ENETDOWN) {
    receiver_.portFailed(std::generic_category().message(error));
  }
  return false;
}

}  // namespace Agent
