// Ring of trace records, cheap enough to stay on: recording copies the parts and a pointer to the
// function that can print them; text is made when the ring is read.
//
// The memory is taken once, by the constructor. The oldest records make room for new ones. Parts
// are trivially copyable, or a string, whose characters are copied. What a pointer points to is not
// copied: string literals and facilities are stored as pointers, so they must outlive the ring, and
// so must the code that recorded. One thread.
//
//   Brevlog::Ring ring(1 << 20);
//   ring.record(8, "QuerierGroupSm", now, "handleRxLeave", '(', sourceCount, ')');
//   ring.forEach([](const Brevlog::Ring::Line& line) { std::puts(line.text().c_str()); });
#pragma once

#include <concepts>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include <MoxBase/Export.h>
#include <MoxBase/Text.h>
#include <MoxBase/Types.h>

namespace Brevlog {

class MOX_PUBLIC Ring {
  using Formatter = void (*)(std::string& out, const std::byte* parts);

  // A char array is kept as a pointer to its first character: it is taken for a literal. A string
  // is kept as its length and its characters.
  template <class Part>
  using Stored = std::conditional_t<
      std::same_as<std::decay_t<Part>, char*>, const char*,
      std::conditional_t<std::same_as<Part, std::string>, std::string_view, Part>>;

 public:
  // One record while forEach or a Reader shows it: refers to ring memory and ends with that call.
  class Line;
  class Reader;

  explicit Ring(size_t capacity);  // bytes: a power of two, at least 64
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  template <class... Part>
  void record(int level, const char* facility, Mox::Seconds time, const Part&... part) {
    static_assert(
        (std::is_trivially_copyable_v<Stored<Part>> && ...),
        "a trace part is copied as bytes: store a number, an address or its text instead");
    static_assert((!std::is_array_v<Stored<Part>> && ...), "only char arrays are trace parts");
    const size_t bytes = recordBytes<Part...>(part...);
    std::byte* at = claim(bytes);
    if (at == nullptr) return;
    const Header header{&appendParts<Stored<Part>...>, facility, time, static_cast<Mox::U32>(bytes),
                        level};
    std::memcpy(at, &header, sizeof header);
    at += sizeof header;
    (store(at, static_cast<Stored<Part>>(part)), ...);
  }

  // Forgets all records; the counts go on.
  void clear();

  // Oldest first. The function must not record into this ring.
  template <class F>
  void forEach(F f) const;

  Mox::U64 recorded() const { return recorded_; }        // stored since construction
  Mox::U64 overwritten() const { return overwritten_; }  // of those, no longer there
  Mox::U64 refused() const { return refused_; }          // not stored: bigger than the ring
  size_t capacity() const { return mask_ + 1; }

  // How much of the capacity a record of these parts takes.
  template <class... Part>
  static constexpr size_t recordBytes(const Part&... part) {
    return (sizeof(Header) + (storedBytes(static_cast<Stored<Part>>(part)) + ... + 0) + align - 1) /
           align * align;
  }

 private:
  struct Header {
    Formatter formatter;  // null: nothing from here to the end of the memory
    const char* facility;
    Mox::Seconds time;
    Mox::U32 bytes;
    Mox::S32 level;
  };
  // Records start at multiples of this, so the end of the memory always has room for the null that
  // says that a record did not fit there.
  static constexpr size_t align = sizeof(Formatter);

  template <class T>
  static constexpr size_t storedBytes(const T& part) {
    if constexpr (std::same_as<T, std::string_view>) {
      return sizeof(Mox::U32) + part.size();
    } else {
      return sizeof part;
    }
  }

  template <class T>
  static void store(std::byte*& at, const T& part) {
    std::memcpy(at, &part, sizeof part);
    at += sizeof part;
  }
  static void store(std::byte*& at, std::string_view part) {
    store(at, static_cast<Mox::U32>(part.size()));
    std::memcpy(at, part.data(), part.size());
    at += part.size();
  }

  template <class T>
  static void appendPart(std::string& out, const std::byte*& at) {
    if constexpr (std::same_as<T, std::string_view>) {
      Mox::U32 size = 0;
      std::memcpy(&size, at, sizeof size);
      out.append(reinterpret_cast<const char*>(at + sizeof size), size);
      at += sizeof size + size;
    } else {
      appendFixed<T>(out, at);
    }
  }
  template <class T>
  static void appendFixed(std::string& out, const std::byte*& at) {
    alignas(T) std::byte copy[sizeof(T)];
    std::memcpy(copy, at, sizeof(T));
    at += sizeof(T);
    using Mox::appendText;
    appendText(out, *reinterpret_cast<const T*>(copy));
  }

  template <class... T>
  static void appendParts([[maybe_unused]] std::string& out, [[maybe_unused]] const std::byte* at) {
    (appendPart<T>(out, at), ...);
  }

  std::byte* claim(size_t bytes);  // null when it can never fit
  void makeRoom(size_t bytes);
  void overwriteOldest();
  std::byte* at(Mox::U64 position) const {
    return reinterpret_cast<std::byte*>(memory_.get()) + (position & mask_);
  }
  size_t bytesToEnd(Mox::U64 position) const { return capacity() - (position & mask_); }
  Header headerAt(Mox::U64 position) const;

  const size_t mask_;
  const std::unique_ptr<Mox::U64[]> memory_;
  Mox::U64 head_ = 0;  // both count bytes for ever; the low bits are the place in the memory
  Mox::U64 tail_ = 0;
  Mox::U64 recorded_ = 0;
  Mox::U64 overwritten_ = 0;
  Mox::U64 refused_ = 0;
};

class Ring::Line {
 public:
  const Mox::Seconds time;
  const int level;
  const char* const facility;

  // "facility parts".
  std::string text() const { return std::string(facility) + ' ' + parts(); }
  // The parts as appendText writes them, nothing between them.
  std::string parts() const {
    std::string out;
    formatter_(out, parts_);
    return out;
  }

 private:
  friend class Ring;
  Line(const Header& header, const std::byte* parts)
      : time(header.time),
        level(header.level),
        facility(header.facility),
        formatter_(header.formatter),
        parts_(parts) {}

  const Formatter formatter_;
  const std::byte* const parts_;
};

// Reads a ring in several steps while others record: each record once, the oldest first. Records
// that are overwritten before they are read are lost and counted. Must not outlive the ring.
//
//   Brevlog::Ring::Reader reader(ring);
//   while (reader.next([](const Brevlog::Ring::Line& line) { std::puts(line.text().c_str()); })) {
//   }
class MOX_PUBLIC Ring::Reader {
 public:
  explicit Reader(const Ring& ring) : ring_(ring) {}

  // Shows the next record; false when nothing is left to read. As with forEach, the function must
  // not record into this ring.
  template <class F>
  bool next(F f);
  // How many records it has passed, counted like the ring's recorded(): with those that were
  // overwritten.
  Mox::U64 position();
  // How many were lost since the last call, without those overwritten before the reader existed.
  Mox::U64 takeLost();

 private:
  void skipOverwritten();

  const Ring& ring_;
  Mox::U64 at_ = ring_.tail_;
  Mox::U64 passed_ = ring_.overwritten_;  // records before at_
  Mox::U64 lost_ = 0;
};

template <class F>
bool Ring::Reader::next(F f) {
  skipOverwritten();
  if (at_ == ring_.head_) return false;
  if (ring_.headerAt(at_).formatter == nullptr) at_ += ring_.bytesToEnd(at_);
  const Header header = ring_.headerAt(at_);
  f(Line(header, ring_.at(at_) + sizeof header));
  at_ += header.bytes;
  ++passed_;
  return true;
}

template <class F>
void Ring::forEach(F f) const {
  for (Mox::U64 position = tail_; position != head_;) {
    const Header header = headerAt(position);
    if (header.formatter == nullptr) {
      position += bytesToEnd(position);
    } else {
      f(Line(header, at(position) + sizeof header));
      position += header.bytes;
    }
  }
}

}  // namespace Brevlog
