// The configuration of interfaces that a command line asks for: settings by attribute, and prefixes
// of the multicast boundary.
//
// Errors call a setting by its option, such as "--robustness 9: must be from 1 to 7 (RFC 3376
// 8.1)".
//
//   QuerierSettings settings;
//   settings.add("queryInterval", "60");
//   settings.check();  // once all of them have been added
//   settings.apply({.config = config, .intake = intake, .process = process});
#pragma once

#include <string_view>
#include <vector>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Ilvo/IntfBoundaryStatus.h>
#include <MoxBase/Ptr.h>
#include <NboAttrLog/TreeIn.h>
#include <Settings/SettingEntities.h>

namespace Agent {

class QuerierSettings {
 public:
  QuerierSettings();

  // A value of one of settingNames(). Throws SettingError.
  void add(std::string_view attribute, std::string_view text);
  // Throws SettingError for a text that is no prefix.
  void boundaryAdd(std::string_view text);
  // Throws SettingError when the values contradict each other.
  void check() const;

  // Sets every stored attribute of the entities that are there: to the added value, or to its
  // default.
  void apply(const SettingEntities& entities) const;
  // The values that were added.
  const std::vector<Mox::NboAttrLog::Written>& given() const { return added_; }

  // Null when no prefix was added.
  const Mox::Ptr<Ilvo::IntfBoundaryStatus>& boundary() const { return boundary_; }

 private:
  const SettingEntities wanted_;
  Mox::Ptr<Ilvo::IntfBoundaryStatus> boundary_;
  std::vector<Mox::NboAttrLog::Written> added_;
};

}  // namespace Agent
