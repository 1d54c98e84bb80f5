// The incoming half of one connection for one directory entry: applies the peer's changes to the
// entity and to those below it, through their setters, so that their notifiees are notified.
//
// A change that cannot be applied is a fault, which ends the connection; the rest of its frame is
// not applied.
#pragma once

#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include <Mox/Entity.h>
#include <Mox/TypeInfo.h>
#include <Mox/Value.h>
#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/Frame.h>
#include <NboAttrLog/InStream.h>
#include <NboAttrLog/TreeOut.h>

namespace Mox::NboAttrLog {

// A value that a peer gives to an attribute.
struct Written {
  const AttrInfo* attr;
  Value value;
};

class MOX_PUBLIC TreeIn {
 public:
  // The connection.
  class MOX_PUBLIC Host {
   public:
    // The values of one frame are written together or not at all: the reason why they are refused,
    // empty when they are accepted.
    virtual std::string whyRefused(const EntityBase& entity, std::span<const Written> values) = 0;

   protected:
    ~Host() = default;
  };

  // `out` is the other half of the same connection, which must not send received values back.
  TreeIn(Ptr<EntityBase> entity, bool writable, TreeOut& out)
      : entity_(std::move(entity)), writable_(writable), out_(out) {}

  const Ptr<EntityBase>& entity() const { return entity_; }

  // Each handles one frame whose Ref was read, and returns the fault, empty for none. Throws an
  // InternalError when the peer has no right to write here.
  std::string handleAttrDeserialization(const Ref& ref, Reader& in, Host& host,
                                        const std::string& peerName);
  std::string handleAddition(const Ref& ref, Reader& in, const std::string& peerName);
  std::string handleRemoval(const Ref& ref, Reader& in, const std::string& peerName);
  // The begin or end of a collection walk. At the end of a walk that names every member, the
  // members that it did not name are removed.
  std::string handleAttrTransaction(const Ref& ref, FrameType type, Reader& in,
                                    const std::string& peerName);

 private:
  std::string readValues(const EntityBase& entity, Reader& in);
  EntityBase* find(const Ref& ref) const;
  void checkWritable(const EntityBase& entity, const std::string& peerName) const;
  const CollectionInfo* collection(const EntityBase& entity, AttrId id) const;
  void named(const Ref& ref, U32 key);
  void remove(EntityBase& entity, const CollectionInfo& collection, const Ref& ref, U32 key);

  const Ptr<EntityBase> entity_;
  const bool writable_;
  TreeOut& out_;
  std::map<Ref, std::set<U32>> notNamed_;  // for each walk under way that names every member
  std::vector<Written> values_;            // of the frame that is being handled
};

}  // namespace Mox::NboAttrLog
