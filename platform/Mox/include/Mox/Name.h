// A name that is stored once for the life of the process.
//
// Names are few (interfaces) and appear in traces, which keep pointers and make text later: an
// interned name can always be read, even after its entity is gone. One pointer, cheap to copy.
#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include <MoxBase/Export.h>

namespace Mox {

class MOX_PUBLIC Name {
 public:
  Name() = default;
  Name(std::string_view text);                                     // NOLINT
  Name(const char* text) : Name(std::string_view(text)) {}         // NOLINT
  Name(const std::string& text) : Name(std::string_view(text)) {}  // NOLINT

  const char* c_str() const { return text_; }
  std::string_view view() const { return text_; }
  std::string string() const { return text_; }
  bool empty() const { return *text_ == '\0'; }

  friend bool operator==(Name a, Name b) { return a.text_ == b.text_; }
  friend auto operator<=>(Name a, Name b) { return a.view() <=> b.view(); }
  // Declared inside the class, it is found for names only, and not for texts that convert to one.
  friend void appendText(std::string& out, Name name) { out += name.view(); }

 private:
  const char* text_ = emptyText();  // interned, so that equal names are equal pointers
  static const char* emptyText();
};

}  // namespace Mox
