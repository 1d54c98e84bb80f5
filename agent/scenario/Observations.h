// Writes observations: one JSON object a line, each with the time on the clock and its event.
#pragma once

#include <cstdio>
#include <span>
#include <string>
#include <string_view>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>

#include "Keys.h"

namespace Agent::Scenario {

class Observations {
 public:
  explicit Observations(std::FILE* out) : out_(out) {}
  Observations(const Observations&) = delete;
  Observations& operator=(const Observations&) = delete;
  ~Observations() { flush(); }

  // Begins a line; the keys follow, then end().
  Observations& begin(std::string_view event);
  Observations& text(std::string_view name, std::string_view value);   // escaped
  Observations& plain(std::string_view name, std::string_view value);  // known to need no escaping
  Observations& json(std::string_view name, const Json& value);
  Observations& number(std::string_view name, int value);
  Observations& hex(std::string_view name, std::span<const Mox::U8> bytes);
  void end();

  void flush();

 private:
  void append(std::string_view name);

  std::FILE* out_;
  std::string lines_;
};

}  // namespace Agent::Scenario
