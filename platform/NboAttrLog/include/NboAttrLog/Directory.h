// The directory above the entities: paths such as "status/eth0" for entities that have no parent.
// The process that owns the entities serves it; each connection sends it to its peer and follows
// its changes.
//
//   Directory directory;
//   directory.entryIs("status/eth0", status, Access::readOnly);
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>

#include <Mox/Entity.h>
#include <Mox/Notifiee.h>
#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/ReplicatedType.h>

namespace Mox::NboAttrLog {

enum class Access : U8 {
  readOnly = 0,      // peers have copies that they cannot write
  configurable = 1,  // a peer with the right to configure may write it
};

class MOX_PUBLIC Directory {
 public:
  struct Entry {
    std::string path;
    Ptr<EntityBase> entity;
    Access access;
  };
  // Is notified of entries that come and go.
  class MOX_PUBLIC Follower {
   public:
    virtual void onEntry(U32 number) = 0;

   protected:
    ~Follower() = default;
  };

  // Adds the entry under a number that no entry had before, in place of one of the same path.
  template <class E>
  U32 entryIs(std::string_view path, Ptr<E> entity, Access access) {
    assertReplicated<E>();
    return entryAdd(path, std::move(entity), access);
  }
  void entryDel(std::string_view path);
  const std::map<U32, Entry>& entries() const { return entries_; }

  void followerAdd(Follower* follower) { followers_.add(follower); }
  void followerRemove(const Follower* follower) { followers_.remove(follower); }

 private:
  U32 entryAdd(std::string_view path, Ptr<EntityBase> entity, Access access);

  std::map<U32, Entry> entries_;
  U32 lastNumber_ = 0;
  NotifieeList<Follower> followers_;
};

}  // namespace Mox::NboAttrLog
