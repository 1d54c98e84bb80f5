#include "Client.h"

#include <stdexcept>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Local/AttrLogSocket.h>

namespace Igmpq {

using Agent::AttrLogCopy;

namespace {

std::string endText(AttrLogCopy::End end, const std::string& why) {
  return end == AttrLogCopy::End::refused ? "the agent refuses: " + why : why;
}

}  // namespace

void addSocketOption(CLI::App& options, std::string& socket) {
  options.add_option("--socket", socket, "the running agent's")
      ->type_name("PATH")
      ->default_str(Agent::servedAttrLogSocketPath());
}

std::string socketPath(const std::string& given) {
  return given.empty() ? Agent::servedAttrLogSocketPath() : given;
}

std::string silenceText(const std::string& socket) {
  return fmt::format("the agent at {} says nothing for {} s: it may hang", socket,
                     longestSilence.count());
}

const AttrLogCopy::Interface& interfaceOf(const AttrLogCopy::Interfaces& interfaces,
                                          const std::string& name) {
  const auto found = interfaces.find(name);
  if (found != interfaces.end()) return found->second;
  std::vector<std::string> names;
  for (const auto& [known, interface] : interfaces) names.push_back(known);
  throw BadUse(fmt::format("the agent has no interface {}; it has: {}", name,
                           names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "))));
}

Client::Client(const std::string& socket)
    : copy_(io_, socketPath(socket),
            {.onCurrent = [this] { current_ = true; },
             .onInput = [this] { inputCame_ = true; },
             .onAnswer = [this](Mox::U32) { answered_ = true; },
             .onEnded = [this](AttrLogCopy::End end,
                               const std::string& why) { ended_ = endText(end, why); }}) {}

// An agent that has a lot to tell may take its time, as long as it goes on.
void Client::fetch() {
  copy_.connect();
  do {
    inputCame_ = false;
    if (runUntil(current_, Clock::now() + longestSilence)) return;
  } while (inputCame_);
  throw std::runtime_error(silenceText(copy_.path()));
}

bool Client::settle(std::chrono::seconds longest) {
  answered_ = false;
  copy_.ask(1);
  return runUntil(answered_, Clock::now() + longest);
}

bool Client::runUntil(const bool& done, Clock::time_point end) {
  while (!done) {
    if (ended_) throw std::runtime_error(*ended_);
    if (io_.run_one_until(end) == 0) return false;
  }
  return true;
}

}  // namespace Igmpq
