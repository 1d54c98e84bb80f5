// The tables of the state report, each from the status of every interface given.
#pragma once

#include <span>

#include <MoxBase/Types.h>
#include <Report/InterfaceView.h>

#include <Text/Table.h>

namespace Agent {

using InterfaceViews = std::span<const InterfaceView>;

// A row each: role, timers, values in effect.
Table interfaceTable(InterfaceViews interfaces, Mox::Seconds now);
// The same with counters and groups in each, for programs that read everything at once.
Table everythingTable(InterfaceViews interfaces, Mox::Seconds now);
// A row for each group, with its sources below.
Table groupTable(InterfaceViews interfaces, Mox::Seconds now);
Table sourceTable(InterfaceViews interfaces, Mox::Seconds now);
// A row for each interface and a column for each counter: for people rather turned.
Table counterTable(InterfaceViews interfaces);
// The same of what is configured.
Table configTable(InterfaceViews interfaces);

}  // namespace Agent
