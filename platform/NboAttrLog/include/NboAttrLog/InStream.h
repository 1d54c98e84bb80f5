// The incoming half of a connection: cuts the received bytes into frames and reads their fields.
//
// A frame that is too long ends the stream: no more of it is kept than the longest frame needs. A
// reader that runs out of bytes returns zeros and is not ok() from then on, so that one check after
// the last field is enough.
//
//   InStream in;
//   in.take(bytes, [](FrameType type, Reader& reader) { ... return true; });
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <Mox/AttrValue.h>
#include <Mox/Value.h>
#include <MoxBase/Export.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/Frame.h>

namespace Mox::NboAttrLog {

class MOX_PUBLIC Reader {
 public:
  explicit Reader(std::span<const U8> bytes) : rest_(bytes) {}

  U8 u8();
  U16 u16();
  U32 u32();
  U64 u64();
  double seconds();
  std::string_view text();
  Value value(ValueKind kind);
  Ref ref();
  // A construction argument; an empty value if there is none.
  Value argument();

  // False after a field that was missing or had a value that its kind does not have.
  bool ok() const { return ok_; }
  bool atEnd() const { return rest_.empty(); }
  // Whether the frame was read exactly to its end.
  bool complete() const { return ok_ && rest_.empty(); }

 private:
  U64 number(size_t bytes);

  std::span<const U8> rest_;
  bool ok_ = true;
};

class MOX_PUBLIC InStream {
 public:
  // Calls handle(type and payload) for each complete frame; false as soon as a call returns false
  // or a length is impossible.
  template <class F>
  bool take(std::span<const U8> bytes, F&& handle) {
    held_.insert(held_.end(), bytes.begin(), bytes.end());
    size_t at = 0;
    bool good = true;
    while (good && held_.size() - at >= 2) {
      const size_t length = static_cast<size_t>(held_[at] << 8 | held_[at + 1]);
      good = length >= 1 && length <= longestPayload + 1;
      if (!good) {
        malformed_ = true;
      } else if (held_.size() - at < 2 + length) {
        break;
      } else {
        good = handle(std::span<const U8>(held_).subspan(at + 2, length));
        at += 2 + length;
      }
    }
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(at));
    return good;
  }
  // Whether the stream ended because of an impossible length.
  bool malformed() const { return malformed_; }

 private:
  std::vector<U8> held_;
  bool malformed_ = false;
};

}  // namespace Mox::NboAttrLog
