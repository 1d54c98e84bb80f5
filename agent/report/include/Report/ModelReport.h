// The state in the names, units and types of the YANG model ietf-igmp-mld (RFC 8652), as JSON
// (RFC 7951), for programs that feed such models.
//
// Left out is what the agent does not know: since when the counters count (discontinuity-time),
// kinds of errors, joined groups, hosts of a source; and a value that the model cannot express,
// such as an interval that is no whole number of seconds. Settings that the model refers to as
// access lists are left out, too.
//
//   std::fputs(modelJson(views, views, process, Mox::now()).c_str(), stdout);
#pragma once

#include <span>
#include <string>

#include <Intake/IntakeProcess.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceView.h>

namespace Agent {

// One line. Totals are those of all interfaces; only the shown ones have entries of their own. The
// process is null where it is not known.
std::string modelJson(std::span<const InterfaceView> all, std::span<const InterfaceView> shown,
                      const Mox::Ptr<IntakeProcessConfig>& process, Mox::Seconds now);

}  // namespace Agent
