#include <NboAttrLog/OutStream.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>

#include <MoxBase/Fatal.h>

namespace Mox::NboAttrLog {

OutStream::OutStream(size_t capacity) : buffer_(std::max(capacity, leastCapacity)) {}

void OutStream::begin(FrameType type) {
  makeContiguousRoom();
  fatalUnless(buffer_.size() - tail_ >= frameHead, "NboAttrLog", "a frame was begun without room");
  frame_ = tail_;
  tail_ += frameHead - 1;  // the length is known at the end
  u8(static_cast<U8>(type));
}

void OutStream::end() {
  const size_t bytes = tail_ - frame_ - 2;
  fatalUnless(bytes <= longestPayload + 1, "NboAttrLog", "a frame is too long");
  buffer_[frame_] = static_cast<U8>(bytes >> 8);
  buffer_[frame_ + 1] = static_cast<U8>(bytes);
}

bool OutStream::fitsAnother() const { return tail_ - frame_ + 2 + 2 + longestText <= longestFrame; }

void OutStream::u8(U8 v) {
  fatalUnless(tail_ < buffer_.size(), "NboAttrLog", "a frame was built without room for it");
  buffer_[tail_++] = v;
}

void OutStream::u16(U16 v) {
  u8(static_cast<U8>(v >> 8));
  u8(static_cast<U8>(v));
}

void OutStream::u32(U32 v) {
  u16(static_cast<U16>(v >> 16));
  u16(static_cast<U16>(v));
}

void OutStream::u64(U64 v) {
  u32(static_cast<U32>(v >> 32));
  u32(static_cast<U32>(v));
}

void OutStream::seconds(double v) { u64(std::bit_cast<U64>(v)); }

void OutStream::text(std::string_view v) {
  v = v.substr(0, longestText);
  u16(static_cast<U16>(v.size()));
  for (const char c : v) u8(static_cast<U8>(c));
}

void OutStream::value(ValueKind kind, const Value& v) {
  switch (kind) {
    case ValueKind::flag: return u8(std::get<bool>(v) ? 1 : 0);
    case ValueKind::u32: return u32(static_cast<U32>(std::get<U64>(v)));
    case ValueKind::u64: return u64(std::get<U64>(v));
    case ValueKind::seconds: return seconds(std::get<double>(v));
    case ValueKind::text: return text(std::get<std::string>(v));
    case ValueKind::s32: return u32(static_cast<U32>(std::get<S64>(v)));
  }
}

void OutStream::ref(const Ref& ref) {
  u32(ref.root);
  u8(ref.depth);
  for (U8 level = 0; level < ref.depth; ++level) u32(ref.keys[level]);
}

void OutStream::taken(size_t bytes) {
  fatalUnless(bytes <= tail_ - head_, "NboAttrLog", "more was taken than was waiting");
  head_ += bytes;
  if (head_ == tail_) head_ = tail_ = 0;
}

void OutStream::makeContiguousRoom() {
  if (head_ == 0 || buffer_.size() - tail_ >= sufficient) return;
  std::memmove(buffer_.data(), buffer_.data() + head_, tail_ - head_);
  tail_ -= head_;
  head_ = 0;
}

}  // namespace Mox::NboAttrLog
