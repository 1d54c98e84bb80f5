// A verb of the command: a subcommand with its options and its work.
//
// It is made before the command line is parsed, so that its options are known, and run afterwards
// if it was named. Bad use is a BadUse or an error of the parser, both before anything was opened,
// or an Agent::BadRequest that the running agent has answered with.
//
//   std::unique_ptr<Verb> run = runVerb(app);
//   app.parse(argc, argv);
//   if (run->chosen()) return run->run();
#pragma once

#include <memory>
#include <stdexcept>

#include <CLI/App.hpp>

namespace Igmpq {

enum ExitStatus { exitOk = 0, exitFailure = 1, exitBadUse = 2 };

// The command line asks for something impossible: ends with exitBadUse and this text.
class BadUse final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Verb {
 public:
  explicit Verb(CLI::App* options) : options_(options) {}
  Verb(const Verb&) = delete;
  Verb& operator=(const Verb&) = delete;
  virtual ~Verb() = default;

  bool chosen() const { return options_->parsed(); }
  // The exit status. Any other exception ends with exitFailure and its text.
  virtual int run() = 0;

 private:
  CLI::App* options_;
};

std::unique_ptr<Verb> runVerb(CLI::App& app);
std::unique_ptr<Verb> replayVerb(CLI::App& app);
std::unique_ptr<Verb> showVerb(CLI::App& app);
std::unique_ptr<Verb> watchVerb(CLI::App& app);
std::unique_ptr<Verb> setVerb(CLI::App& app);
std::unique_ptr<Verb> callVerb(CLI::App& app);
std::unique_ptr<Verb> clearVerb(CLI::App& app);
std::unique_ptr<Verb> traceVerb(CLI::App& app);
std::unique_ptr<Verb> getVerb(CLI::App& app);
std::unique_ptr<Verb> checkVerb(CLI::App& app);
std::unique_ptr<Verb> reloadVerb(CLI::App& app);
std::unique_ptr<Verb> webVerb(CLI::App& app);
std::unique_ptr<Verb> storeVerb(CLI::App& app);
std::unique_ptr<Verb> typesVerb(CLI::App& app);

}  // namespace Igmpq
