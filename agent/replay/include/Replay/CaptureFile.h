// A capture file, pcap or pcapng, read frame by frame.
//
//   CaptureFile file("lan.pcap");
//   while (const std::optional<CaptureFile::Frame> frame = file.next()) use(frame->time,
//   frame->content);
#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include <MoxBase/Types.h>
#include <Replay/CaptureFrame.h>

struct pcap;

namespace Agent {

// Thrown when the file cannot be read, is no capture, or was captured on a link of unknown type.
class CaptureError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class CaptureFile {
 public:
  struct Frame {
    Mox::Seconds time;  // since 1970; limited to the years 1970 to 9999
    CaptureContent content;
  };

  // Throws CaptureError. "-" is standard input.
  explicit CaptureFile(const std::string& path);

  // Empty at the end. The frame's bytes are valid until the next call.
  std::optional<Frame> next();

  // Why reading stopped before the end of the file; empty when it did not.
  const std::string& damage() const { return damage_; }

 private:
  struct Closer {
    void operator()(pcap* handle) const;
  };

  std::unique_ptr<pcap, Closer> handle_;
  int linkType_ = 0;
  std::string damage_;
};

}  // namespace Agent
