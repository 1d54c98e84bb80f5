#include <Events/IntakeEvents.h>

#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Mox/ActivityClock.h>

namespace Agent {

Event intakeEvent(std::string interface, const IntakeEvent& event) {
  const IntakeRuleName& rule = nameOf(event.rule);
  Event reported{.time = Mox::now(), .interface = std::move(interface)};
  reported.kind = rule.isWarning ? Event::intakeWarning : Event::intake;
  reported.address = event.sender;
  reported.group = event.group;
  reported.attribute = rule.name;
  reported.text = rule.text;
  reported.mac = fmt::format("{:02x}", fmt::join(event.mac, ":"));
  reported.count = event.count;
  return reported;
}

}  // namespace Agent
