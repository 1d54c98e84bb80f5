// Options of a verb that are more than a text. A bad value throws CLI::ValidationError out of the
// app's parse, with a message such as "--robustness 9: must be from 1 to 7 (RFC 3376 8.1)".
//
//   Agent::QuerierSettings settings;
//   addSettings(*app.add_subcommand("run"), settings);
//   app.parse(argc, argv);
//   settings.apply({.config = config, .intake = intake, .process = process});
#pragma once

#include <functional>
#include <string>

#include <Settings/OptionNumber.h>
#include <Settings/QuerierSettings.h>
#include <CLI/App.hpp>

namespace Igmpq {

// An option whose value is a number; `valueName` stands for it in the help.
CLI::Option* addNumber(CLI::App& app, const std::string& name, const std::string& valueName,
                       const Agent::NumberRange& range, const std::string& help,
                       std::function<void(double)> take);

// The options of the intake are in a group of their own, which the help shows on request.
inline constexpr const char* intakeGroup = "Intake";

// The settings of an interface: an option for each of Agent::settingNames(), "queryInterval" being
// --query-interval, and --boundary PREFIX. The settings must outlive the
// parse and stay where they are. Takes the app's parse_complete_callback, which checks that they do
// not contradict each other; its other callbacks are free.
void addSettings(CLI::App& app, Agent::QuerierSettings& settings);

}  // namespace Igmpq
