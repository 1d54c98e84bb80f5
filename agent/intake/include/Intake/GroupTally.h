// How often each group is named by the records of one packet, and what the packet adds to it.
//
// begin() forgets the packet before in no time; an entry costs a step or two in a table whose part
// in use is twice as large as the packet has records. Groups are placed by the secret multiplier of
// the hashed collections, so that nobody can choose groups that fall together.
#pragma once

#include <bit>
#include <cstddef>
#include <vector>

#include <Ilvo/IpAddr.h>
#include <Mox/HashMap.h>
#include <MoxBase/Types.h>

namespace Agent {

class GroupTally {
 public:
  // An IPv4 packet has no room for more records.
  static constexpr std::size_t mostRecords = 8192;

  struct Entry {
    Mox::U32 group = 0;
    Mox::U32 packet = 0;  // for which the rest holds
    Mox::U32 records = 0;
    Mox::U32 newSources = 0;
    bool isNew = false;  // no group of the interface before this packet
  };

  void begin(std::size_t records) {
    if (++packet_ == 0) {  // the numbers begin again: old entries must not seem to be of now
      std::fill(entries_.begin(), entries_.end(), Entry());
      packet_ = 1;
    }
    mask_ = std::bit_ceil(2 * records + 2) - 1;
  }
  // At most as many groups as `begin` was given records.
  Entry& of(Ilvo::IpAddr group) {
    const int shift = 64 - std::popcount(mask_);
    std::size_t at = (group.value() * Mox::detail::hashMultiplier) >> shift;
    while (entries_[at].packet == packet_ && entries_[at].group != group.value()) {
      at = (at + 1) & mask_;
    }
    Entry& entry = entries_[at];
    if (entry.packet != packet_) entry = {.group = group.value(), .packet = packet_};
    return entry;
  }

 private:
  std::vector<Entry> entries_ = std::vector<Entry>(std::bit_ceil(2 * mostRecords + 2));
  Mox::U32 packet_ = 0;
  std::size_t mask_ = 0;
};

}  // namespace Agent
