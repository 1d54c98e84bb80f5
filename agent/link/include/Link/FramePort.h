// Where an interface's frames go and come from. Behind it stands the kernel, or a test.
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

  // One whole Ethernet frame. Empty when it went out, else why it did not.
  virtual std::string send(std::span<const Mox::U8> frame) = 0;

  // Frames received and lost since it was opened, as nobody took them in time.
  virtual Mox::U64 dropped() = 0;
};

// Who is told, batch by batch. It may close the port from portFailed, and from nowhere else.
class FrameReceiver {
 public:
  FrameReceiver() = default;
  FrameReceiver(const FrameReceiver&) = delete;
  FrameReceiver& operator=(const FrameReceiver&) = delete;
  virtual ~FrameReceiver() = default;

  // The next frame of a batch: Ethernet with IGMP in it, as it was on the link; valid during the
  // call. To be handled when the batch ends, as those who know what comes next can fetch ahead.
  virtual void rxFrame(std::span<const Mox::U8> frame) = 0;
  // No more has arrived yet, or it is time for something else.
  virtual void rxBatchEnd() = 0;
  // Nothing will be received any more.
  virtual void portFailed(const std::string& why) = 0;
};

// Opens the port of an interface; the receiver outlives it. Throws std::runtime_error with the
// reason.
using PortOpener = std::function<std::unique_ptr<FramePort>(const Link&, FrameReceiver&)>;

}  // namespace Agent
