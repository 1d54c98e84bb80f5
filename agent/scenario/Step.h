// One step of a scenario: read whole and checked before anything happens, then carried out.
#pragma once

#include <memory>
#include <string_view>

#include "Keys.h"
#include "World.h"

namespace Agent::Scenario {

class Step {
 public:
  virtual ~Step() = default;
  virtual void run(World& world) const = 0;
};

// The step of that line. `world` is null for the first line. A StepError when it cannot be read:
// unknown operation or key, missing key, wrong type, interface unknown or known already.
std::unique_ptr<Step> readStep(const Json& object, const World* world);

}  // namespace Agent::Scenario
