#include <NboAttrLog/InStream.h>

#include <bit>

namespace Mox::NboAttrLog {

U64 Reader::number(size_t bytes) {
  if (rest_.size() < bytes) {
    ok_ = false;
    rest_ = {};
    return 0;
  }
  U64 v = 0;
  for (const U8 byte : rest_.first(bytes)) v = v << 8 | byte;
  rest_ = rest_.subspan(bytes);
  return v;
}

U8 Reader::u8() { return static_cast<U8>(number(1)); }
U16 Reader::u16() { return static_cast<U16>(number(2)); }
U32 Reader::u32() { return static_cast<U32>(number(4)); }
U64 Reader::u64() { return number(8); }
double Reader::seconds() { return std::bit_cast<double>(u64()); }

std::string_view Reader::text() {
  const size_t bytes = u16();
  if (bytes > longestText || rest_.size() < bytes) {
    ok_ = false;
    rest_ = {};
    return {};
  }
  const std::string_view v(reinterpret_cast<const char*>(rest_.data()), bytes);
  rest_ = rest_.subspan(bytes);
  return v;
}

Value Reader::value(ValueKind kind) {
  switch (kind) {
    case ValueKind::flag: {
      const U8 v = u8();
      ok_ = ok_ && v <= 1;
      return v == 1;
    }
    case ValueKind::u32: return U64{u32()};
    case ValueKind::u64: return u64();
    case ValueKind::seconds: return seconds();
    case ValueKind::text: return std::string(text());
    case ValueKind::s32: return S64{static_cast<S32>(u32())};
  }
  return {};
}

Value Reader::argument() {
  const U8 kind = u8();
  if (kind == 0) return {};
  if (kind > argumentKind(ValueKind::text)) {
    ok_ = false;
    return {};
  }
  return value(static_cast<ValueKind>(kind - 1));
}

Ref Reader::ref() {
  Ref ref;
  ref.root = u32();
  ref.depth = u8();
  if (ref.depth > Ref::deepest) {
    ok_ = false;
    ref.depth = 0;
  }
  for (U8 level = 0; level < ref.depth; ++level) ref.keys[level] = u32();
  return ref;
}

}  // namespace Mox::NboAttrLog
