// What a new agent takes over of the state that the one before it has left.
//
//   if (whyAnother(*kept.state, link).empty()) {
//     leavePassed(*kept.status, {.lost = lost, .now = Mox::now(), .grace = stallTimeout});
//     setup.kept = kept.status;
//   }
#pragma once

#include <string>

#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Link/LinkTable.h>
#include <Mox/Entity.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceState.h>

namespace Agent {

// Why the state is not that of this interface; empty when it is. A name alone says little: the next
// interface of that name can be on another link.
std::string whyAnother(const InterfaceState& kept, const Link* link);

struct PassedTime {
  Mox::Seconds lost;  // when the agent before was lost
  Mox::Seconds now;
  Mox::Seconds grace;  // that the times of sources may be behind: they are not always published
};

// Sources whose time has run out count as expired, and a group whose time has run out is left with
// the sources that somebody wants (RFC 3376 6.5). One that has none of these leaves the status; so
// does what was not received whole.
void leavePassed(Gmp::Igmp::QuerierStatus& status, const PassedTime& time);

// Sets again what was set at run time, as far as the configuration says the same as it did before:
// `kept` and `present` are what was and is in effect, the others what the configurations say.
// Returns why nothing is set; empty where it is.
std::string returnSettings(const Mox::EntityBase& kept, const Mox::EntityBase& keptConfigured,
                           const Mox::EntityBase& configured, Mox::EntityBase& present);

}  // namespace Agent
