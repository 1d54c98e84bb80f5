// `igmpq types`: the types of the library and their attributes.
#include <cstdio>
#include <stdexcept>
#include <string>

#include <Report/TypeReport.h>

#include "Verb.h"

namespace Igmpq {

namespace {

class TypesVerb final : public Verb {
 public:
  explicit TypesVerb(CLI::App& app)
      : TypesVerb(app.add_subcommand("types", "List the types of the library")) {}

  int run() override {
    const Agent::Format format = json_ ? Agent::Format::json : Agent::Format::text;
    if (type_.empty()) {
      Agent::printTypes(stdout, format);
    } else {
      Agent::printType(stdout, named(), format);
    }
    return exitOk;
  }

 private:
  explicit TypesVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  igmpq types                   all types, a line each\n"
        "  igmpq types QuerierStatus     the attributes of one\n"
        "  igmpq types --json            all types with their attributes\n"
        "It needs no agent.\n"
        "Exit status: 0 ok, 1 failure, 2 no such type.\n");
    options->add_option("TYPE", type_, "a qualified name, or how one ends")
        ->type_name("")
        ->option_text("[TYPE]");
    options->add_flag("--json", json_, "write JSON");
  }

  const Mox::TypeRecord& named() const {
    try {
      return Agent::typeFor(type_);
    } catch (const std::invalid_argument& error) {
      throw BadUse(error.what());
    }
  }

  std::string type_;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Verb> typesVerb(CLI::App& app) { return std::make_unique<TypesVerb>(app); }

}  // namespace Igmpq
