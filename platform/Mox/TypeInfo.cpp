#include <Mox/TypeInfo.h>

#include <algorithm>
#include <type_traits>

namespace Mox {

namespace {

template <class List>
auto* named(const List& list, std::string_view name) {
  const auto found =
      std::ranges::find_if(list, [&](const auto& each) { return each.name == name; });
  return found == list.end() ? nullptr : &*found;
}

}  // namespace

const AttrInfo* TypeInfo::attr(AttrId id) const {
  const AttrId first = attrs.empty() ? 0 : attrs.front().id;
  if (id >= first && id - first < attrs.size()) return &attrs[id - first];
  if (framework == nullptr) return nullptr;
  const auto found = std::ranges::find(framework(), id, &AttrInfo::id);
  return found == framework().end() ? nullptr : &*found;
}

const AttrInfo* TypeInfo::attr(std::string_view attrName) const {
  const AttrInfo* own = named(attrs, attrName);
  return own != nullptr || framework == nullptr ? own : named(framework(), attrName);
}

const CollectionInfo* TypeInfo::collection(std::string_view attrName) const {
  return named(collections, attrName);
}

const AttrInfo* TypeInfo::key() const {
  const auto found = std::ranges::find(attrs, AttrKind::key, &AttrInfo::kind);
  return found == attrs.end() ? nullptr : &*found;
}

std::vector<const AttrInfo*> TypeInfo::record() const {
  std::vector<const AttrInfo*> all;
  for (const AttrInfo& attr : attrs) all.push_back(&attr);
  if (framework == nullptr) return all;
  // Only the name, where a type has one, precedes the attributes that every entity has.
  const bool hasName = !all.empty() && all.front()->name == std::string_view("name");
  auto at = all.begin() + (hasName ? 1 : 0);
  for (const AttrInfo& attr : framework()) at = all.insert(at, &attr) + 1;
  return all;
}

std::string valueText(const Value& value) {
  return std::visit(
      [](const auto& held) -> std::string {
        if constexpr (std::is_same_v<std::remove_cvref_t<decltype(held)>, std::monostate>) {
          return {};
        } else {
          return textOf(held);
        }
      },
      value);
}

}  // namespace Mox
