// The answers of the JSON API, with the keys of `igmpq show --json`.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Web/WebAnswer.h>
#include <Web/WebState.h>

namespace Agent {

// A request whose path matched, and whose keys are known.
struct ApiCall {
  WebState& state;
  std::vector<std::string> names = {};  // in the path, in place of "*"
  std::map<std::string, std::string> query = {};
  std::string_view lastEventId = {};
};

// The whole text as a number.
std::optional<size_t> numberOf(std::string_view text);

WebAnswer agentAnswer(const ApiCall& call);
WebAnswer interfacesAnswer(const ApiCall& call);
WebAnswer interfaceAnswer(const ApiCall& call);
WebAnswer groupsAnswer(const ApiCall& call);
WebAnswer groupAnswer(const ApiCall& call);
WebAnswer countersAnswer(const ApiCall& call);
WebAnswer configAnswer(const ApiCall& call);
WebAnswer eventsAnswer(const ApiCall& call);

}  // namespace Agent
