// The interface at which a querier sends and receives. Behind it is the kernel, or a test.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <system_error>

#include <MoxBase/Types.h>

namespace Agent {

struct Link;

// An IPv4 packet and the frame that carried it; both are valid during the call that hands them
// over.
struct RxPacket {
  std::span<const Mox::U8> frame;   // from its destination address on
  std::span<const Mox::U8> packet;  // from the IPv4 header on, with what follows it in the frame
  bool outgoing = false;            // sent by this machine
};

// Frames with IGMP in them since the port was opened. The receiver gets the fragments, and no
// other.
struct PortCounts {
  Mox::U64 lost = 0;        // the ring was full
  Mox::U64 unparsable = 0;  // no whole IPv4 packet
  Mox::U64 fragments = 0;   // a part of an IPv4 packet
  Mox::U64 otherVlans = 0;  // tagged for a VLAN, which is another link
};

class FramePort {
 public:
  FramePort() = default;
  FramePort(const FramePort&) = delete;
  FramePort& operator=(const FramePort&) = delete;
  virtual ~FramePort() = default;

  // Sends an IPv4 packet, or returns the error that prevented it.
  virtual std::error_code send(std::span<const Mox::U8> packet) = 0;

  // Hands over what has arrived, without a wait for its turn.
  virtual void handOver() {}

  virtual PortCounts counts() = 0;
};

// The user of a port. It may close the port from portFailed, and from no other call.
class FrameReceiver {
 public:
  FrameReceiver() = default;
  FrameReceiver(const FrameReceiver&) = delete;
  FrameReceiver& operator=(const FrameReceiver&) = delete;
  virtual ~FrameReceiver() = default;

  // The next packet of a batch, to be handled when the batch ends: a receiver that knows the
  // packets that follow can prefetch what they need.
  virtual void rxPacket(const RxPacket& packet) = 0;
  virtual void rxBatchEnd() = 0;
  // Nothing is received any more.
  virtual void portFailed(const std::string& why) = 0;
};

// Opens the port of an interface; the receiver outlives it. Throws std::runtime_error with the
// reason.
using PortOpener = std::function<std::unique_ptr<FramePort>(const Link&, FrameReceiver&)>;

}  // namespace Agent
