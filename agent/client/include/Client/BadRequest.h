// A request to the agent that cannot succeed as it is: it names something that does not exist, or
// asks for a value that is not permitted. Other failures are std::runtime_errors of other types.
#pragma once

#include <stdexcept>

namespace Agent {

class BadRequest final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Agent
