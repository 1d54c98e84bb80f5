#include <Settings/QuerierSettings.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include <Ilvo/IpPrefix.h>
#include <Settings/ConfigWrites.h>
#include <Settings/SettingText.h>

namespace Agent {

using Mox::NboAttrLog::Written;

QuerierSettings::QuerierSettings()
    : wanted_{.config = Gmp::Igmp::querierConfigFactory(""),
              .intake = Mox::makePtr<IntakeConfig>(""),
              .process = Mox::makePtr<IntakeProcessConfig>()} {}

void QuerierSettings::add(std::string_view attribute, std::string_view text) {
  const Written setting = readSetting(attribute, optionName(attribute), text);
  if (std::ranges::find(added_, setting.attr, &Written::attr) != added_.end()) {
    throw SettingError(optionName(attribute), std::string(text),
                       "gives " + optionName(setting.attr->name) + " a second value");
  }
  added_.push_back(setting);
  wanted_.set(setting);
}

void QuerierSettings::boundaryAdd(std::string_view text) {
  const auto prefix = Ilvo::IpGenPrefix::parse(text);
  if (!prefix) {
    throw SettingError("--boundary", std::string(text),
                       "must be a prefix such as 239.0.0.0/8 or ff05::/16");
  }
  if (!boundary_) boundary_ = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  boundary_->boundaryIs(*prefix, true);
}

void QuerierSettings::check() const {
  std::vector<Written> ofQuerier;
  std::ranges::copy_if(added_, std::back_inserter(ofQuerier), [&](const Written& setting) {
    return wanted_.ownerOf(*setting.attr) == wanted_.config;
  });
  const auto error = settingErrorOf(*wanted_.config, ofQuerier);
  if (error) throw SettingError(optionName(error->name()), error->value(), error->reason());
}

void QuerierSettings::apply(const SettingEntities& entities) const {
  if (entities.config) copySettings(*wanted_.config, *entities.config);
  if (entities.intake) copySettings(*wanted_.intake, *entities.intake);
  if (entities.process) copySettings(*wanted_.process, *entities.process);
}

}  // namespace Agent
