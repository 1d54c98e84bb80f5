// A verb's connection to the running agent, for verbs that ask, wait and end.
//
//   Client client(socket);
//   client.fetch();
//   client.interfaces().at("eth0").status->state();
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include <Client/AttrLogCopy.h>
#include <boost/asio/io_context.hpp>

#include "Verb.h"

namespace Igmpq {

// The option by which a verb is told of another agent than the usual one.
void addSocketOption(CLI::App& options, std::string& socket);
// What was given, or where a running agent is to be found.
std::string socketPath(const std::string& given);

// How long an agent that is waited for may say nothing.
inline constexpr std::chrono::seconds longestSilence(10);
// What is wrong when it has.
std::string silenceText(const std::string& socket);

// BadUse when the agent has no interface of that name.
const Agent::AttrLogCopy::Interface& interfaceOf(const Agent::AttrLogCopy::Interfaces& interfaces,
                                                 const std::string& name);

class Client {
 public:
  explicit Client(const std::string& socket);

  // Until all that the agent has is here. Throws std::runtime_error where that cannot be.
  void fetch();
  // What `write` changes in the copies is sent together, see AttrLogCopy.
  void writeTogether(const std::function<void()>& write) { copy_.writeTogether(write); }
  // Until the agent has acted on all that was written; false when that takes longer. Throws
  // std::runtime_error with the agent's reason when it refuses.
  bool settle(std::chrono::seconds longest);

  const Agent::AttrLogCopy::Interfaces& interfaces() const { return copy_.interfaces(); }

 private:
  using Clock = std::chrono::steady_clock;
  bool runUntil(const bool& done, Clock::time_point end);

  boost::asio::io_context io_{1};
  bool current_ = false;
  bool answered_ = false;
  bool inputCame_ = false;
  std::optional<std::string> ended_;
  Agent::AttrLogCopy copy_;
};

}  // namespace Igmpq
