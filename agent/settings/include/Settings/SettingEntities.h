// The entities that hold the settings of an interface.
//
//   const SettingEntities entities{.config = config, .intake = intake, .process = process};
//   for (const Written& setting : settings) entities.set(setting);
#pragma once

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Intake/IntakeConfig.h>
#include <Intake/IntakeProcess.h>
#include <Mox/Entity.h>
#include <MoxBase/Ptr.h>
#include <NboAttrLog/TreeIn.h>

namespace Agent {

struct SettingEntities {
  Mox::Ptr<Gmp::Igmp::QuerierConfig> config;
  Mox::Ptr<IntakeConfig> intake;          // null where none is known
  Mox::Ptr<IntakeProcessConfig> process;  // of all interfaces; null where none is known

  // The one that has the attribute; null where it is not known.
  Mox::Ptr<Mox::EntityBase> ownerOf(const Mox::AttrInfo& attr) const;
  // For a setting whose owner is known.
  void set(const Mox::NboAttrLog::Written& setting) const;
};

// Sets each attribute that can be set to the value that it has in an entity of the same type.
void copySettings(const Mox::EntityBase& from, Mox::EntityBase& to);

}  // namespace Agent
