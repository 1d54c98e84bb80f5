// For tests: frames and capture files, made byte by byte.
//
//   const CaptureOnDisk file(PcapFile(DLT_EN10MB).frame(10.5,
//   ethernet(buildV2Report(group))).bytes()); CaptureFile capture(file.path());
#pragma once

#include <pcap/dlt.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include <MoxBase/Types.h>
#include <gtest/gtest.h>

namespace Agent {

using Bytes = std::vector<Mox::U8>;

inline Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

inline Bytes behind(Bytes header, const Bytes& packet) {
  return joined({std::move(header), packet});
}

// `types` are the type fields in their order; each but the last is that of a VLAN tag.
inline Bytes ethernet(const Bytes& packet, std::vector<unsigned> types = {0x0800}) {
  Bytes frame(12, 0x02);
  for (size_t at = 0; at < types.size(); ++at) {
    if (at != 0) frame.insert(frame.end(), {0x00, 0x07});
    frame.push_back(static_cast<Mox::U8>(types[at] >> 8));
    frame.push_back(static_cast<Mox::U8>(types[at]));
  }
  return behind(frame, packet);
}

// A number of four or two bytes in the order of the machine that captures.
inline Bytes word(Mox::U32 value) {
  Bytes bytes(4);
  for (Mox::U8& byte : bytes) {
    byte = static_cast<Mox::U8>(value);
    value >>= 8;
  }
  return bytes;
}
inline Bytes halfWord(Mox::U32 value) {
  Bytes bytes = word(value);
  bytes.resize(2);
  return bytes;
}

// A classic capture with microseconds.
class PcapFile {
 public:
  explicit PcapFile(Mox::U32 linkType)
      : bytes_(joined({word(0xa1b2c3d4), halfWord(2), halfWord(4), word(0), word(0), word(65535),
                       word(linkType)})) {}

  // `lengthOnLink` is said to be longer than the frame where the capture has cut it.
  PcapFile& frame(Mox::Seconds time, const Bytes& frame, std::optional<size_t> lengthOnLink = {}) {
    const double whole = std::floor(time);
    const size_t length = lengthOnLink.value_or(frame.size());
    bytes_ = joined({bytes_, word(static_cast<Mox::U32>(whole)),
                     word(static_cast<Mox::U32>(std::round((time - whole) * 1e6))),
                     word(static_cast<Mox::U32>(frame.size())), word(static_cast<Mox::U32>(length)),
                     frame});
    return *this;
  }
  PcapFile& cutEnd(size_t bytes) {
    bytes_.resize(bytes_.size() - bytes);
    return *this;
  }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
};

// A file of its own for as long as it lives.
class CaptureOnDisk {
 public:
  explicit CaptureOnDisk(const Bytes& bytes)
      : path_(testing::TempDir() + "capture" + std::string(6, 'X')) {
    const int descriptor = mkstemp(path_.data());
    std::FILE* file = fdopen(descriptor, "wb");
    if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
  }
  ~CaptureOnDisk() { unlink(path_.c_str()); }
  CaptureOnDisk(const CaptureOnDisk&) = delete;
  CaptureOnDisk& operator=(const CaptureOnDisk&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace Agent
