// A key for the tests of collections: four bytes, made of a number, in the order of its numbers.
#pragma once

#include <compare>
#include <string>

#include <MoxBase/Text.h>
#include <MoxBase/Types.h>

namespace Mox {

class TestKey {
 public:
  constexpr TestKey() = default;
  explicit constexpr TestKey(U32 value) : value_(value) {}
  constexpr U32 value() const { return value_; }
  friend constexpr auto operator<=>(TestKey, TestKey) = default;  // NOLINT(modernize-use-nullptr)

 private:
  U32 value_ = 0;
};

inline void appendText(std::string& out, TestKey key) { appendText(out, key.value()); }

}  // namespace Mox
