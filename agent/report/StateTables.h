// The tables of the state report, each from the status of every interface given.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceView.h>

#include <Text/Table.h>

namespace Agent {

using InterfaceViews = std::span<const InterfaceView>;

// Which groups go into a table: from one group of one interface on, until there are so many rows,
// or so many groups. Making a table moves it on to the first group that found no room.
struct GroupWindow {
  static constexpr size_t allRows = static_cast<size_t>(-1);

  size_t rows = allRows;  // of groups and sources
  size_t groups = allRows;
  size_t interface = 0;  // all of them stand before it at the end
  Ilvo::IpAddr group = {};

  bool isFull() const { return rows == 0 || groups == 0; }
};

// Which interfaces go into a table that has a row or a column for each. Its other dimension is the
// same for all of them.
struct InterfaceRange {
  size_t first = 0;
  size_t end = static_cast<size_t>(-1);

  InterfaceViews of(InterfaceViews all) const {
    const size_t last = std::min(end, all.size());
    return all.subspan(first, last - first);
  }
};

// A row each: role, timers, values in effect.
Table interfaceTable(InterfaceViews interfaces, Mox::Seconds now, InterfaceRange range = {});
// The same with counters and groups in each, for programs that read everything at once. Once the
// groups of an interface find no room, those behind it have none either.
Table everythingTable(InterfaceViews interfaces, Mox::Seconds now, GroupWindow& window,
                      InterfaceRange range = {});
// The groups of a window, a row for each interface, and nothing else of it.
Table moreGroupsTable(InterfaceViews interfaces, Mox::Seconds now, GroupWindow& window);
// A row for each group, with its sources below.
Table groupTable(InterfaceViews interfaces, Mox::Seconds now, GroupWindow& window);
// That group alone; no row when the interface does not have it.
Table oneGroupTable(const InterfaceView& interface, Ilvo::IpAddr group, Mox::Seconds now);
Table sourceTable(InterfaceViews interfaces, Mox::Seconds now);
// A row for each interface and a column for each counter: for people rather turned.
Table counterTable(InterfaceViews interfaces, InterfaceRange range = {});

}  // namespace Agent
