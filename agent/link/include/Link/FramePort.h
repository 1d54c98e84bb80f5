// The interface by which frames are sent and received: implemented by PacketPort, and by tests.
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

  // Sends one whole Ethernet frame. Returns the reason when that fails, and nothing otherwise.
  virtual std::string send(std::span<const Mox::U8> frame) = 0;

  // The number of frames that were lost since the port was opened, as they were not read in time.
  virtual Mox::U64 dropped() = 0;
};

// Receives frames in batches. Of these functions only portFailed may close the port.
class FrameReceiver {
 public:
  FrameReceiver() = default;
  FrameReceiver(const FrameReceiver&) = delete;
  FrameReceiver& operator=(const FrameReceiver&) = delete;
  virtual ~FrameReceiver() = default;

  // The next frame of a batch, an Ethernet frame with IGMP as it was on the link; valid during the
  // call. The receiver handles frames when the batch ends, so that it can prefetch for later ones.
  virtual void rxFrame(std::span<const Mox::U8> frame) = 0;
  // The batch ends: no frame is waiting, or timers are to be handled first.
  virtual void rxBatchEnd() = 0;
  // No more frames will be received.
  virtual void portFailed(const std::string& why) = 0;
};

// Opens the port of an interface; the receiver outlives it. Throws std::runtime_error with the
// reason.
using PortOpener = std::function<std::unique_ptr<FramePort>(const Link&, FrameReceiver&)>;

}  // namespace Agent
