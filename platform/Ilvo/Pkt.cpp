#include <Ilvo/Pkt.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace Ilvo {

Pkt::Pkt(std::size_t headroom) { growFront(headroom); }

Pkt::Pkt(std::span<const U8> bytes) { bytesIs(bytes); }

void Pkt::bytesIs(std::span<const U8> bytes) {
  whole_ = front_ = end_ = size_;
  if (bytes.size() > size_) growFront(bytes.size() - size_);
  whole_ = front_ = size_ - bytes.size();
  std::copy(bytes.begin(), bytes.end(), buffer_ + front_);
}

void Pkt::reserveHead(std::size_t n) {
  if (n > front_) {
    const std::size_t more = n - front_;
    Mox::fatalUnless(more <= std::numeric_limits<std::size_t>::max() - size_, "Ilvo",
                     "n does not overflow");
    growFront(more);
  }
  front_ -= n;
  whole_ = std::min(whole_, front_);
  std::fill_n(buffer_ + front_, n, U8{0});
}

void Pkt::growFront(std::size_t more) {
  const std::size_t size = size_ + more;
  std::unique_ptr<U8[]> heap(size > inlineBytes ? new U8[size] : nullptr);
  U8* const buffer = heap ? heap.get() : buffer_;
  // Within the object old and new place overlap, so the bytes are moved from the back.
  std::copy_backward(buffer_ + whole_, buffer_ + size_, buffer + size);
  if (heap) heap_ = std::move(heap);
  buffer_ = buffer;
  size_ = size;
  whole_ += more;
  front_ += more;
  end_ += more;
}

std::string shownValue(const Mox::Ptr<Pkt>& pkt) {
  constexpr const char* digits = "0123456789abcdef";
  std::string text;
  if (!pkt) return text;
  for (const U8 byte : pkt->data()) {
    text += digits[byte >> 4];
    text += digits[byte & 0xf];
  }
  return text;
}

}  // namespace Ilvo
