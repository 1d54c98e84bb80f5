#include <Settings/QuerierSettings.h>

#include <Ilvo/IpPrefix.h>
#include <Settings/ConfigWrites.h>
#include <Settings/SettingRules.h>
#include <Settings/SettingText.h>

namespace Agent {

using Gmp::Igmp::QuerierConfig;

QuerierSettings::QuerierSettings() : wanted_(Gmp::Igmp::querierConfigFactory("")) {}

void QuerierSettings::add(std::string_view attribute, std::string_view text) {
  added_.push_back(readSetting(attribute, optionName(attribute), text));
  added_.back().attr->set(*wanted_, added_.back().value);
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
  const auto error = settingErrorOf(*wanted_, added_);
  if (error) throw SettingError(optionName(error->name()), error->value(), error->reason());
}

void QuerierSettings::apply(QuerierConfig& config) const {
  QuerierConfig::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (isSetting<decltype(row)>) (config.*row.set)((*wanted_).*row.member);
  });
}

}  // namespace Agent
