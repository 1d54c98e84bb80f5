// A set of group addresses with a count beside it that its user keeps.
#pragma once

#include <string>

#include <GmpIgmpQuerier/IpAddrSet.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/AttrTable.h>
#include <Mox/ValueStrep.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

class MOX_PUBLIC GroupList {
 public:
  static constexpr const char* valueTypeName = "Gmp::Igmp::GroupList";

  const IpAddrSet& groupList() const { return groupList_; }
  U16 groupCount() const { return groupCount_; }

  void groupListIs(IpAddr group, bool) { groupList_.insert(group); }
  void groupListDel(IpAddr group) { groupList_.erase(group); }
  void groupListDelAll() { groupList_.clear(); }
  void groupCountIs(U16 count) { groupCount_ = count; }
  // Adds with wraparound; the new count.
  U16 groupCountInc(U16 by) { return groupCount_ = static_cast<U16>(groupCount_ + by); }

  friend bool operator==(const GroupList&, const GroupList&) = default;

 private:
  IpAddrSet groupList_;
  U16 groupCount_ = 0;

 public:
  static constexpr Mox::FieldTable fields{
      Mox::Field{"groupList", &GroupList::groupList_},
      Mox::Field{"groupCount", &GroupList::groupCount_},
  };
};

// "Value('Gmp::Igmp::GroupList', ** {...})", every field in its own form.
inline std::string valueToStrep(const GroupList& list) { return Mox::valueStrep(list); }
// The same in traces and messages.
inline void appendText(std::string& out, const GroupList& list) { out += valueToStrep(list); }

}  // namespace Gmp::Igmp
