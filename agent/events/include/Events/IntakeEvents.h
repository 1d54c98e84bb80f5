// Events of what an intake refuses, changes or warns of.
//
//   sink.event(intakeEvent("eth0", event));
#pragma once

#include <string>

#include <Events/Event.h>
#include <Intake/Intake.h>

namespace Agent {

Event intakeEvent(std::string interface, const IntakeEvent& event);

}  // namespace Agent
