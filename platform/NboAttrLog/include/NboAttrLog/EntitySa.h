// The adapter between one entity and the outgoing stream of one connection.
//
// It is made for one operation, from the stream, the entity, and the FlowOut with the part that the
// peer has not been sent. Everything else is derived from the type's attribute table.
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

  // Announces an entity that is not a member of another one: type and construction argument. Its
  // attributes are sent as those of any other.
  void doSerializeOrphan(std::string_view path, bool writable);

  // Sends the current value of one attribute.
  void sendAttr(AttrId id);
  // Sends the addition of the member of that key with everything in it, or its removal. False when
  // the stream was full before everything inside was sent; the rest is remembered.
  bool sendMember(const CollectionInfo& collection, U32 key);

  // Sends the current values of dirty attributes, from `from` on in the order of identifiers. False
  // when the stream is full before the end: the next call goes on from there.
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
  bool sendInside(const CollectionInfo& collection, FlowOut::Members::Flows::iterator inside);
  void sendBegin(const CollectionInfo& collection);
  void sendEnd(const CollectionInfo& collection, Stop stop);
  void sendMarker(FrameType type, const CollectionInfo& collection, U8 flag);

  OutStream& out_;
  const EntityBase& entity_;
  FlowOut& flow_;
  Ref ref_;
};

}  // namespace Mox::NboAttrLog
