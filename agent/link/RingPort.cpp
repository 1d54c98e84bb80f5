#include <Link/RingPort.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/epoll.h>

#include <Link/LinkTable.h>
#include "FrameRing.h"
#include "RxPackets.h"

namespace Agent {

using Mox::U8;

namespace {

// About 65,000 short frames, after which timers get their turn.
constexpr std::size_t blocksOfBatch = 512;

}  // namespace

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
  ++ports_;
}

void RingPolls::remove(RingPort& port) {
  epoll_ctl(epoll_.fd(), EPOLL_CTL_DEL, port.ring_->fd(), nullptr);
  std::ranges::replace(ready_, &port, nullptr);
  --ports_;
}

// The kernel puts rings that were ready behind the others, so that none waits for ever.
void RingPolls::readReady() {
  std::array<epoll_event, 64> events;
  std::size_t left = blocksOfBatch;
  int got = 0;
  std::size_t seen = 0;
  do {
    got = epoll_wait(epoll_.fd(), events.data(), events.size(), 0);
    ready_.clear();
    for (int i = 0; i < got; ++i) {
      ready_.push_back(static_cast<RingPort*>(events[static_cast<std::size_t>(i)].data.ptr));
    }
    for (RingPort*& port : ready_) {
      if (port != nullptr && left > 0) left -= port->readBlocks(left);
    }
    seen += ready_.size();
  } while (got == static_cast<int>(events.size()) && left > 0 && seen < ports_);
  ready_.clear();
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

// An interface that is down reports an error and receives again once it is up: netlink reports
// both.
std::size_t RingPort::readBlocks(std::size_t most) {
  std::size_t blocks = 0;
  const auto use = [this](const RingFrame& frame) {
    if (const auto packet = rxPacketOf(frame, counts_)) receiver_.rxPacket(*packet);
  };
  while (blocks < std::min(most, ring_->blocks()) && ring_->readBlock(use)) {
    ++blocks;
    receiver_.rxBatchEnd();
  }
  if (blocks != 0) return blocks;
  const int error = ring_->error();
  if (error != 0 && error != ENETDOWN) {
    receiver_.portFailed(std::generic_category().message(error));
  }
  return blocks;
}

}  // namespace Agent
