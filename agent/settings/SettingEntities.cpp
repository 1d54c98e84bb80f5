#include <Settings/SettingEntities.h>

#include <string_view>

#include <Mox/TypeInfo.h>

namespace Agent {

Mox::Ptr<Mox::EntityBase> SettingEntities::ownerOf(const Mox::AttrInfo& attr) const {
  const std::string_view name = attr.name;  // no two of the entities have the same
  if (Mox::typeInfoOf<Gmp::Igmp::QuerierConfig>().attr(name) != nullptr) return config;
  if (Mox::typeInfoOf<IntakeConfig>().attr(name) != nullptr) return intake;
  return process;
}

void SettingEntities::set(const Mox::NboAttrLog::Written& setting) const {
  setting.attr->set(*ownerOf(*setting.attr), setting.value);
}

void copySettings(const Mox::EntityBase& from, Mox::EntityBase& to) {
  for (const Mox::AttrInfo& attr : from.type().attrs) {
    if (attr.set != nullptr) attr.set(to, attr.get(from));
  }
}

}  // namespace Agent
