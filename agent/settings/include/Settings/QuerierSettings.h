// The querier configuration as command-line options: one for each stored attribute of
// QuerierConfig, "queryInterval" being --query-interval, and --boundary PREFIX.
//
// Options are made by walking the attribute table. Their ranges stand in a table of rules beside
// it; an attribute without a rule does not compile. A bad value, and values that do not go
// together, throw CLI::ValidationError out of the app's parse, with a message such as
// "--robustness 9: must be from 1 to 7 (RFC 3376 8.1)". The object must outlive the parse and stays
// where it is.
//
//   QuerierSettings settings;
//   settings.addOptions(*app.add_subcommand("run"));
//   app.parse(argc, argv);
//   settings.apply(*config);
#pragma once

#include <set>
#include <string>
#include <string_view>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Ilvo/IntfBoundaryStatus.h>
#include <MoxBase/Ptr.h>
#include <CLI/CLI.hpp>

namespace Agent {

class QuerierSettings {
 public:
  QuerierSettings();
  QuerierSettings(const QuerierSettings&) = delete;
  QuerierSettings& operator=(const QuerierSettings&) = delete;

  // Takes the app's parse_complete_callback, which checks what goes together; its other callbacks
  // are free.
  void addOptions(CLI::App& app);

  // Sets every stored attribute: to what was asked for, or to its default.
  void apply(Gmp::Igmp::QuerierConfig& config) const;

  // Null when no --boundary was given.
  const Mox::Ptr<Ilvo::IntfBoundaryStatus>& boundary() const { return boundary_; }

 private:
  void boundaryAdd(const std::string& text);
  void checkTogether() const;

  Mox::Ptr<Gmp::Igmp::QuerierConfig> wanted_;
  Mox::Ptr<Ilvo::IntfBoundaryStatus> boundary_;
  std::set<std::string_view> given_;  // attributes that an option has set
};

// "queryInterval" -> "--query-interval".
std::string optionName(std::string_view attribute);

}  // namespace Agent
