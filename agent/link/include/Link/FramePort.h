// Sends and receives the frames of an interface: through the kernel, or in a test.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>

#include <MoxBase/Types.h>

namespace Agent {

struct Link;

class FramePort {
 public:
  FramePort() = default;
  FramePort(const FramePort&) = delete;
  FramePort& operator=(const FramePort&) = delete;
  virtual ~FramePort() = default;

  // Sends one whole Ethernet frame. Empty when it was sent, else the reason why not.
  virtual std::string send(std::span<const Mox::U8> frame) = 0;

  // Frames that were received since it was opened and lost, as they were not read in time.
  virtual Mox::U64 dropped() = 0;
};

// Receives frames, batch by batch. It may close the port from portFailed, and from nowhere else.
class FrameReceiver {
 public:
  FrameReceiver() = default;
  FrameReceiver(const FrameReceiver&) = delete;
  FrameReceiver& operator=(const FrameReceiver&) = delete;
  virtual ~FrameReceiver() = default;

  // The next frame of a batch: Ethernet with IGMP in it, as it was on the link; valid during the
  // call. To be handled when the batch ends: a receiver that knows the next frames can prefetch.
  virtual void rxFrame(std::span<const Mox::U8> frame) = 0;
  // No more frames have arrived, or timers are to have their turn.
  virtual void rxBatchEnd() = 0;
  // No more frames will be received.
  virtual void portFailed(const std::string& why) = 0;
};

// Opens the port of an interface; the receiver outlives it. Throws std::runtime_error with the
// reason.
using PortOpener = std::function<std::unique_ptr<FramePort>(const Link&, FrameReceiver&)>;

}  // namespace Agent
