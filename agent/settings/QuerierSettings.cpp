#include <Settings/QuerierSettings.h>

#include <type_traits>
#include <vector>

#include <fmt/format.h>

#include <Ilvo/IpPrefix.h>

#include <Settings/SettingRules.h>
#include <Settings/SettingText.h>

namespace Agent {

using Gmp::Igmp::QuerierConfig;

namespace {

[[noreturn]] void refuse(std::string_view attribute, std::string_view value,
                         const std::string& why) {
  throw CLI::ValidationError(fmt::format("{} {}", optionName(attribute), value), why);
}

// What stands for a value in the help.
template <class V>
constexpr const char* valueName() {
  if constexpr (std::is_same_v<V, bool>) return "on|off";
  if constexpr (std::is_same_v<V, Gmp::Igmp::IgmpVersion>) return "1|2|3";
  if constexpr (std::is_same_v<V, Mox::Seconds>) return "SECONDS";
  return "N";
}

template <class V>
std::string defaultText(const V& value) {
  if constexpr (std::is_same_v<V, bool>) return value ? "on" : "off";
  if constexpr (std::is_same_v<V, Mox::Seconds>) return fmt::format("{}", value);
  return fmt::to_string(static_cast<Mox::U32>(value));
}

}  // namespace

std::string optionName(std::string_view attribute) {
  std::string name = "--";
  for (const char c : attribute) {
    const bool upper = c >= 'A' && c <= 'Z';
    if (upper) name += '-';
    name += upper ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return name;
}

QuerierSettings::QuerierSettings() : wanted_(Gmp::Igmp::querierConfigFactory("")) {}

void QuerierSettings::addOptions(CLI::App& app) {
  QuerierConfig::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (isSetting<decltype(row)>) {
      using V = std::remove_cvref_t<decltype((*wanted_).*row.member)>;
      const SettingRule& rule = *settingRule(row.name);
      const auto take = [this, row, &rule](const std::string& text) {
        ((*wanted_).*row.set)(settingOf<V>(optionName(rule.attribute), rule, text));
        given_.insert(rule.attribute);
      };
      app.add_option_function<std::string>(optionName(row.name), take, rule.help)
          ->type_name(valueName<V>())
          ->default_str(defaultText((*wanted_).*row.member));
    }
  });
  app.add_option_function<std::vector<std::string>>(
         "--boundary",
         [this](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) boundaryAdd(text);
         },
         "groups that are neither learned nor asked for; may be repeated")
      ->type_name("PREFIX")
      ->allow_extra_args(false);
  app.parse_complete_callback([this] { checkTogether(); });
}

void QuerierSettings::apply(QuerierConfig& config) const {
  QuerierConfig::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (isSetting<decltype(row)>) (config.*row.set)((*wanted_).*row.member);
  });
}

void QuerierSettings::boundaryAdd(const std::string& text) {
  const auto prefix = Ilvo::IpGenPrefix::parse(text);
  if (!prefix) {
    refuse("boundary", text, "must be a prefix such as 239.0.0.0/8 or ff05::/16");
  }
  if (!boundary_) boundary_ = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  boundary_->boundaryIs(*prefix, true);
}

void QuerierSettings::checkTogether() const {
  const auto found = contradictionOf(*wanted_, given_);
  if (found) refuse(found->attribute, found->value, found->why);
}

}  // namespace Agent
