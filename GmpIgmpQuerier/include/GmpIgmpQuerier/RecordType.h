// The type byte of a group record in a version 3 report (RFC 3376 4.2.12).
#pragma once

#include <compare>
#include <ostream>
#include <string>

#include <GmpIgmpQuerier/Types.h>
#include <Mox/AttrTable.h>

namespace Gmp::Igmp {

// Holds any byte, even one that is no record type: the code that uses the record checks it.
// Prints as its decimal number.
class RecordType {
 public:
  static constexpr const char* valueTypeName = "Gmp::Igmp::RecordType";

  constexpr RecordType() = default;
  constexpr explicit RecordType(U8 value) : value_(value) {}

  constexpr U8 value() const { return value_; }
  friend constexpr bool operator==(RecordType, RecordType) = default;
  friend constexpr bool operator<(RecordType a, RecordType b) { return a.value_ < b.value_; }

 private:
  U8 value_ = 0;

 public:
  static constexpr Mox::FieldTable fields{Mox::Field{"value", &RecordType::value_}};
};

inline std::string valueToStrep(RecordType type) { return std::to_string(type.value()); }
inline std::string stringValue(RecordType type) { return valueToStrep(type); }
inline void appendText(std::string& out, RecordType type) { out += valueToStrep(type); }
inline std::ostream& operator<<(std::ostream& out, RecordType type) {
  return out << valueToStrep(type);
}

}  // namespace Gmp::Igmp
