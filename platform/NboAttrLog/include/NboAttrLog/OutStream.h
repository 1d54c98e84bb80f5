// The outgoing half of a connection: a bounded buffer into which frames are built, and from which
// the socket takes bytes.
//
// It never grows. The code that builds a frame first asks whether the buffer is sufficient: whether
// the longest frame fits, and after it the end markers of the walks under way. If not, the change
// is remembered and sent, with the value of that moment, when there is room again.
//
//   if (!out.sufficientBuffer()) return remember();
//   out.begin(FrameType::removal);
//   out.ref(ref);
//   out.u16(260);
//   out.u32(key);
//   out.end();
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include <Mox/AttrValue.h>
#include <Mox/Value.h>
#include <MoxBase/Export.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/Frame.h>

namespace Mox::NboAttrLog {

class MOX_PUBLIC OutStream {
 public:
  static constexpr size_t defaultCapacity = size_t{32} * 1024;
  // Room for the end markers of walks within walks.
  static constexpr size_t endMarkers = 128;
  static constexpr size_t sufficient = longestFrame + endMarkers;
  // With less, the begin of a walk would take the room that its first member needs.
  static constexpr size_t leastCapacity = 2 * sufficient;

  explicit OutStream(size_t capacity = defaultCapacity);

  bool sufficientBuffer() const { return capacity() - pending().size() >= sufficient; }
  size_t capacity() const { return buffer_.size(); }

  // The fields of one frame are written between begin and end; the caller has checked the room.
  void begin(FrameType type);
  void u8(U8 v);
  void u16(U16 v);
  void u32(U32 v);
  void u64(U64 v);
  void seconds(double v);
  void text(std::string_view v);
  void value(ValueKind kind, const Value& v);
  void ref(const Ref& ref);
  // Whether another attribute of any kind fits into the frame that is being built.
  bool fitsAnother() const;
  void end();

  // The bytes that wait to be sent: complete frames, without the taken bytes of the first one.
  std::span<const U8> pending() const { return {buffer_.data() + head_, tail_ - head_}; }
  // The socket took that many of the bytes.
  void taken(size_t bytes);

 private:
  void makeContiguousRoom();

  std::vector<U8> buffer_;
  size_t head_ = 0;
  size_t tail_ = 0;
  size_t frame_ = 0;  // where the frame that is being built begins
};

}  // namespace Mox::NboAttrLog
