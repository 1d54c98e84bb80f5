// How one entity goes through the attribute log of one connection: the adapter between an entity
// and the streams.
//
// It is made for a moment, of what it needs: the connection's tree, the entity, and the FlowOut
// that holds what the peer lacks. Everything is derived from the type's attribute table.
#pragma once

#include <Mox/AttrTable.h>
#include <Mox/Entity.h>
#include <MoxBase/Export.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/FlowOut.h>
#include <NboAttrLog/Frame.h>
#include <NboAttrLog/InStream.h>
#include <NboAttrLog/OutStream.h>

namespace Mox::NboAttrLog {

// Whether members have no members of their own.
inline bool hasLeaves(const CollectionInfo& collection) {
  return collection.memberType().collections.empty();
}

class MOX_PUBLIC EntitySa {
 public:
  using FlowOut = NboAttrLog::FlowOut;

  EntitySa(OutStream& out, const EntityBase& entity, FlowOut& flow, const Ref& ref)
      : out_(out), entity_(entity), flow_(flow), ref_(ref) {}

  // Announces an entity that is a member of nothing: type and construction argument. Its attributes
  // follow the normal path.
  void doSerializeOrphan(std::string_view path, bool writable);

  // Sends the value of now of one attribute.
  void sendAttr(AttrId id);
  // Sends that the member of that key is there, with all that is in it, or that it is gone. False
  // when the stream was full before everything inside was sent; the rest is remembered.
  bool sendMember(const CollectionInfo& collection, U32 key);

  // Sends what is dirty, from the attribute `from` on in the order of identifiers, with the values
  // of now. False when the stream is full before the end: the next call goes on from there.
  bool handleAttrFlowOut(AttrId from = 0);

 private:
  using Stop = std::optional<WalkStop>;  // nothing when all was sent

  const AttrInfo* nextDirty(AttrId from) const;
  bool sendAfterInterrupted();
  void sendScalars(const AttrInfo* first);
  bool serializeColl(const CollectionInfo& collection);
  Stop sendMembers(const CollectionInfo& collection);
  Stop sendRecords(const CollectionInfo& collection);
  bool sendCollection(const CollectionInfo& collection);
  bool sendKeys(const CollectionInfo& collection);
  Stop sendLeaves(const CollectionInfo& collection);
  bool sendLeaf(const CollectionInfo& collection, U32 key);
  bool sendOrResumeMember(const CollectionInfo& collection, U32 key);
  bool sendInside(const CollectionInfo& collection);
  bool sendInside(const CollectionInfo& collection, std::map<U32, FlowOut>::iterator inside);
  void sendBegin(const CollectionInfo& collection);
  void sendEnd(const CollectionInfo& collection, Stop stop);
  void sendMarker(FrameType type, const CollectionInfo& collection, U8 flag);

  OutStream& out_;
  const EntityBase& entity_;
  FlowOut& flow_;
  Ref ref_;
};

}  // namespace Mox::NboAttrLog
