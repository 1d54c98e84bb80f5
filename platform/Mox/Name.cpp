#include <Mox/Name.h>

#include <functional>
#include <set>

namespace Mox {

namespace {

// Never emptied: a trace may refer to a name long after its last other user is gone.
std::set<std::string, std::less<>>& names() {
  static auto* all = new std::set<std::string, std::less<>>;
  return *all;
}

const char* intern(std::string_view text) {
  auto found = names().find(text);
  if (found == names().end()) found = names().emplace(text).first;
  return found->c_str();
}

}  // namespace

Name::Name(std::string_view text) : text_(intern(text)) {}

const char* Name::emptyText() {
  static const char* const empty = intern("");
  return empty;
}

}  // namespace Mox
