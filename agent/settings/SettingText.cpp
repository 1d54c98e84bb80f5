#include <Settings/SettingText.h>

namespace Agent {

using Gmp::Igmp::QuerierConfig;

namespace {

std::optional<Contradiction> responseIntervalOf(const QuerierConfig& config,
                                                const std::set<std::string_view>& given) {
  const double response = config.queryResponseInterval();
  const double interval = config.queryInterval();
  if (response < interval) return std::nullopt;
  if (given.contains("queryResponseInterval")) {
    return Contradiction{
        "queryResponseInterval", fmt::to_string(response),
        fmt::format("must be less than the query interval, {} seconds (RFC 3376 8.3)", interval)};
  }
  return Contradiction{
      "queryInterval", fmt::to_string(interval),
      fmt::format("must be more than the query response interval, {} seconds (RFC 3376 8.3)",
                  response)};
}

std::optional<Contradiction> lastMemberIntervalOf(const QuerierConfig& config) {
  const double interval = config.lastMemberQueryInterval();
  const auto version = static_cast<unsigned>(config.querierVersion());
  if (version == 3 || interval <= oldLastMemberIntervalMost) return std::nullopt;
  return Contradiction{"lastMemberQueryInterval", fmt::to_string(interval),
                       fmt::format("must be from {} to {} in version {} (RFC 2236 2.2)",
                                   settingRule("lastMemberQueryInterval")->least,
                                   oldLastMemberIntervalMost, version)};
}

}  // namespace

Mox::Ptr<QuerierConfig> copyOf(const QuerierConfig& config) {
  Mox::Ptr<QuerierConfig> same = Gmp::Igmp::querierConfigFactory(config.name());
  for (const Mox::AttrInfo& attr : config.type().attrs) {
    if (attr.set != nullptr) attr.set(*same, attr.get(config));
  }
  return same;
}

std::optional<Contradiction> contradictionOf(const QuerierConfig& config,
                                             const std::set<std::string_view>& given) {
  const auto found = responseIntervalOf(config, given);
  return found ? found : lastMemberIntervalOf(config);
}

}  // namespace Agent
