// The incoming half of one connection for one directory entry: applies what the peer sends to the
// entity and to those below it, through their setters, so that their notifiees hear of it.
//
// What cannot be applied is a fault, which ends the connection; nothing of that frame is applied
// after it.
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
  // What the host says of the values of one frame, which are written together or not at all: why
  // they are refused, empty when they are taken.
  class MOX_PUBLIC Judge {
   public:
    virtual std::string whyRefused(const EntityBase& entity, std::span<const Written> values) = 0;

   protected:
    ~Judge() = default;
  };

  // `out` is the same connection's other half, which must not send back what comes in.
  TreeIn(Ptr<EntityBase> entity, bool writable, TreeOut& out)
      : entity_(std::move(entity)), writable_(writable), out_(out) {}

  const Ptr<EntityBase>& entity() const { return entity_; }

  // Each acts on one frame from behind its Ref, and gives the fault, empty for none. An
  // InternalError when the peer may not write here.
  std::string handleAttrDeserialization(const Ref& ref, Reader& in, Judge& judge,
                                        const std::string& peerName);
  std::string handleAddition(const Ref& ref, Reader& in, const std::string& peerName);
  std::string handleRemoval(const Ref& ref, Reader& in, const std::string& peerName);
  // A collection walk of the peer begins or ends. At the end of one that named every member, those
  // that it did not name are removed.
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
  std::map<Ref, std::set<U32>> notNamed_;  // by walks under way that name every member
  std::vector<Written> values_;            // of the frame that is being acted on
};

}  // namespace Mox::NboAttrLog
