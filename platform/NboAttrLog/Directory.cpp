#include <NboAttrLog/Directory.h>

#include <algorithm>
#include <utility>

namespace Mox::NboAttrLog {

U32 Directory::entryAdd(std::string_view path, Ptr<EntityBase> entity, Access access) {
  entryDel(path);
  const U32 number = ++lastNumber_;
  entries_[number] = {std::string(path), std::move(entity), access};
  followers_.walk([&](Follower& follower) { follower.onEntry(number); });
  return number;
}

void Directory::entryDel(std::string_view path) {
  const auto found =
      std::ranges::find_if(entries_, [&](const auto& entry) { return entry.second.path == path; });
  if (found == entries_.end()) return;
  const U32 number = found->first;
  entries_.erase(found);
  followers_.walk([&](Follower& follower) { follower.onEntry(number); });
}

}  // namespace Mox::NboAttrLog
