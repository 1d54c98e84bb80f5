// A packet: bytes with a front and an end that move inwards as headers and trailers are taken off.
//
// Every access counts from the front, reads and writes network order, works at any alignment and is
// checked: asking past the end is a fatal assertion. A parser therefore asks has(n) before it
// reads. Small packets live inside the object, so that one costs a single allocation. One thread at
// a time.
//
//   Ptr<Pkt> query = makePtr<Pkt>(12U);  // room for 12 bytes in front
//   query->reserveHead(12);              // now they are there, zeroed
//   query->u8Is(0, 0x11);
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string>

#include <Ilvo/IpAddr.h>
#include <Ilvo/Types.h>
#include <MoxBase/Export.h>
#include <MoxBase/Fatal.h>
#include <MoxBase/Ptr.h>

namespace Ilvo {

class MOX_PUBLIC Pkt final : public Mox::RefCounted {
 public:
  static constexpr const char* valueTypeName = "Ilvo::Pkt";

  // Empty, with room for `headroom` bytes in front.
  explicit Pkt(std::size_t headroom = 0);
  // Holds a copy of the bytes.
  explicit Pkt(std::span<const U8> bytes);

  // Holds a copy of these bytes instead, which are none of its own. Its memory is used again.
  void bytesIs(std::span<const U8> bytes);

  // The bytes between front and end. The span is valid until the packet changes.
  std::size_t offsetBytes() const { return end_ - front_; }
  std::span<const U8> data() const { return {buffer_ + front_, offsetBytes()}; }
  bool has(std::size_t n) const { return n <= offsetBytes(); }

  U8 u8(std::size_t at) const { return *range(at, 1); }
  U16 u16(std::size_t at) const {
    const U8* p = range(at, 2);
    return static_cast<U16>(p[0] << 8 | p[1]);
  }
  U32 u32(std::size_t at) const {
    const U8* p = range(at, 4);
    return U32{p[0]} << 24 | U32{p[1]} << 16 | U32{p[2]} << 8 | U32{p[3]};
  }
  IpAddr ipAddr(std::size_t at) const { return IpAddr(u32(at)); }

  void u8Is(std::size_t at, U8 v) { *range(at, 1) = v; }
  void u16Is(std::size_t at, U16 v) {
    U8* p = range(at, 2);
    p[0] = static_cast<U8>(v >> 8);
    p[1] = static_cast<U8>(v);
  }
  void u32Is(std::size_t at, U32 v) {
    U8* p = range(at, 4);
    p[0] = static_cast<U8>(v >> 24);
    p[1] = static_cast<U8>(v >> 16);
    p[2] = static_cast<U8>(v >> 8);
    p[3] = static_cast<U8>(v);
  }
  void ipAddrIs(std::size_t at, IpAddr v) { u32Is(at, v.value()); }

  void frontOffsetInc(std::size_t n) {
    requireBytes(n);
    front_ += n;
  }
  void endOffsetDec(std::size_t n) {
    requireBytes(n);
    end_ -= n;
  }
  // Front and end enclose the whole packet again.
  void offsetsReset() {
    front_ = whole_;
    end_ = size_;
  }

  // Moves the front outwards by n bytes, which read zero then, whatever stood there before.
  void reserveHead(std::size_t n);

 private:
  static constexpr std::size_t inlineBytes = 128;

  void requireBytes(std::size_t n) const { Mox::fatalUnless(has(n), "Ilvo", "has( n )"); }
  U8* range(std::size_t at, std::size_t n) const {
    Mox::fatalUnless(has(n) && at <= offsetBytes() - n, "Ilvo", "has( at + n )");
    return buffer_ + front_ + at;
  }
  // `more` bytes of room in front of everything; their values are not set.
  void growFront(std::size_t more);

  std::size_t size_ = 0;   // of the buffer; the packet always reaches to its end
  std::size_t whole_ = 0;  // where the whole packet begins; unused room lies before it
  std::size_t front_ = 0;
  std::size_t end_ = 0;
  std::array<U8, inlineBytes> inline_;
  std::unique_ptr<U8[]> heap_;
  U8* buffer_ = inline_.data();  // or that of heap_, once inline_ is too small
};

// A packet is shown as its bytes between front and end, two hexadecimal digits each.
MOX_PUBLIC std::string shownValue(const Mox::Ptr<Pkt>& pkt);

}  // namespace Ilvo
