#include <Mox/TypeInfo.h>

#include <algorithm>

namespace Mox {

const AttrInfo* TypeInfo::attr(AttrId id) const {
  const AttrId first = attrs.empty() ? 0 : attrs.front().id;
  return id < first || id - first >= attrs.size() ? nullptr : &attrs[id - first];
}

const AttrInfo* TypeInfo::attr(std::string_view attrName) const {
  const auto found =
      std::ranges::find_if(attrs, [&](const AttrInfo& attr) { return attr.name == attrName; });
  return found == attrs.end() ? nullptr : &*found;
}

const AttrInfo* TypeInfo::key() const {
  const auto found = std::ranges::find(attrs, AttrKind::key, &AttrInfo::kind);
  return found == attrs.end() ? nullptr : &*found;
}

}  // namespace Mox
