#include <NboAttrLog/EntitySa.h>

#include <limits>
#include <utility>

namespace Mox::NboAttrLog {

void EntitySa::doSerializeOrphan(std::string_view path, bool writable) {
  const TypeInfo& type = entity_.type();
  out_.begin(FrameType::root);
  out_.u32(ref_.root);
  out_.text(path);
  out_.u8(writable ? 1 : 0);
  out_.text(type.name);
  const AttrInfo* key = type.key();
  out_.u8(key == nullptr ? 0 : argumentKind(key->value));
  if (key != nullptr) out_.value(key->value, key->get(entity_));
  out_.end();
  entity_.treeWatchedIs();
}

void EntitySa::sendAttr(AttrId id) {
  const AttrInfo& attr = *entity_.type().attr(id);
  flow_.attrDirtyDel(id);
  out_.begin(FrameType::attributes);
  out_.ref(ref_);
  out_.u16(static_cast<U16>(id));
  out_.value(attr.value, attr.get(entity_));
  out_.end();
}

bool EntitySa::sendMember(const CollectionInfo& collection, U32 key) {
  const EntityBase* member = collection.find(entity_, key);
  if (member == nullptr) {
    out_.begin(FrameType::removal);
    out_.ref(ref_);
    out_.u16(static_cast<U16>(collection.id));
    out_.u32(key);
    out_.end();
    return true;
  }
  const Ref below = ref_.member(key);
  out_.begin(FrameType::addition);
  out_.ref(below);
  out_.u16(static_cast<U16>(collection.id));
  out_.text(member->typeName());
  out_.u32(key);
  out_.end();
  member->treeWatchedIs();
  FlowOut flow = FlowOut::everythingOf(member->type());
  if (EntitySa(out_, *member, flow, below).handleAttrFlowOut()) return true;
  if (hasLeaves(collection)) {
    flow_.members().leafIs(key, flow.dirtyBits());
  } else {
    flow_.members().flows()[key] = std::move(flow);
  }
  flow_.attrDirtyIs(collection.id);
  return false;
}

bool EntitySa::handleAttrFlowOut(AttrId from) {
  if (from == 0 && !sendBehindInterrupted()) return false;
  while (const AttrInfo* attr = nextDirty(from)) {
    if (!out_.sufficientBuffer()) return false;
    if (attr->kind == AttrKind::collection) {
      if (!serializeColl(entity_.type().collections.front())) return false;
      from = attr->id + 1;
    } else {
      sendScalars(attr);
    }
  }
  return true;
}

const AttrInfo* EntitySa::nextDirty(AttrId from) const {
  if (flow_.dirtyBits() == 0) return nullptr;
  for (const AttrInfo& attr : entity_.type().attrs) {
    if (attr.id > entityFirstAttrId && attr.id >= from && flow_.attrDirty(attr.id)) return &attr;
  }
  return nullptr;
}

// A walk may last for as long as members change faster than the peer takes them. The attributes
// behind it do not wait for that. They do wait for the first walk, which everything goes through
// once.
bool EntitySa::sendBehindInterrupted() {
  const FlowOut::Members* members = flow_.membersIfAny();
  if (members == nullptr || !members->interrupted()) return true;
  const CollectionInfo& collection = entity_.type().collections.front();
  const bool first = hasLeaves(collection) ? members->whole() : members->walking();
  return first || handleAttrFlowOut(collection.id + 1);
}

// Dirty attributes that follow each other share a frame.
void EntitySa::sendScalars(const AttrInfo* first) {
  out_.begin(FrameType::attributes);
  out_.ref(ref_);
  for (const AttrInfo* attr = first; attr != nullptr && attr->kind != AttrKind::collection;
       attr = nextDirty(attr->id + 1)) {
    if (!out_.fitsAnother()) break;
    flow_.attrDirtyDel(attr->id);
    out_.u16(static_cast<U16>(attr->id));
    out_.value(attr->value, attr->get(entity_));
  }
  out_.end();
}

bool EntitySa::serializeColl(const CollectionInfo& collection) {
  if (hasLeaves(collection) ? sendLeaves(collection) : sendMembers(collection)) {
    flow_.attrDirtyDel(collection.id);
    flow_.membersDel();
    return true;
  }
  flow_.members().interruptedIs();
  return false;
}

bool EntitySa::sendMembers(const CollectionInfo& collection) {
  FlowOut::Members& members = flow_.members();
  if (members.insideFirst() && !members.walking() && !sendInside(collection)) return false;
  return (!members.hasRecords() || sendRecords(collection)) && sendInside(collection);
}

// One transaction, or the part of it for which there is room.
bool EntitySa::sendRecords(const CollectionInfo& collection) {
  FlowOut::Members& members = flow_.members();
  sendBegin(collection);
  bool room = true;
  while (room) {
    const std::optional<U32> key = nextKey(collection);
    if (!key) break;
    members.bookmarkIs(key);
    room = out_.sufficientBuffer() && resumeOrSend(collection, *key);
  }
  if (room) members.bookmarkIs({});
  sendEnd(collection, room);
  return room;
}

// Leaves have no order to go by: what has been sent is forgotten, and what is left is the bookmark.
bool EntitySa::sendLeaves(const CollectionInfo& collection) {
  FlowOut::Members& members = flow_.members();
  if (members.walking()) {
    for (const U32 key : collection.keys(entity_)) {
      members.leafIs(key, FlowOut::Members::leafRecord);
    }
    members.walkingDel();
  }
  const bool transaction = members.hasRecords();
  if (transaction) sendBegin(collection);
  bool room = true;
  for (const U32 key : members.leafKeys()) {
    room = out_.sufficientBuffer() && sendLeaf(collection, key);
    if (!room) break;
  }
  if (transaction) sendEnd(collection, room);
  return room;
}

bool EntitySa::sendLeaf(const CollectionInfo& collection, U32 key) {
  const U32 bits = flow_.members().leafTake(key);
  if ((bits & FlowOut::Members::leafRecord) != 0) return sendMember(collection, key);
  const EntityBase* member = collection.find(entity_, key);
  FlowOut inside(bits);
  if (member == nullptr || EntitySa(out_, *member, inside, ref_.member(key)).handleAttrFlowOut()) {
    return true;
  }
  flow_.members().leafIs(key, inside.dirtyBits());
  return false;
}

// The key after those that this walk has sent: of the collection while the walk goes through all of
// it, then of those that came or went.
std::optional<U32> EntitySa::nextKey(const CollectionInfo& collection) {
  FlowOut::Members& members = flow_.members();
  if (members.walking() && !collection.ordered) {
    for (const U32 key : collection.keys(entity_)) members.dirtyIs(key, true);
    members.walkingDel();
  }
  if (members.walking()) {
    if (const auto next = collection.next(entity_, members.bookmark().value_or(0))) return next;
    members.walkingDel();
    members.bookmarkIs({});
  }
  const auto& dirty = members.dirty();
  auto found = dirty.lower_bound(members.bookmark().value_or(0));
  if (found == dirty.end()) found = dirty.begin();
  if (found == dirty.end()) return {};
  return found->first;
}

// Sends the record of the key, or what is left of it where the stream was full within it. From the
// announcement on, what changes inside is the member's own business and no longer this record's.
bool EntitySa::resumeOrSend(const CollectionInfo& collection, U32 key) {
  FlowOut::Members& members = flow_.members();
  const auto begun = members.flows().find(key);
  if (begun == members.flows().end()) {
    members.dirtyDel(key);
    if (!sendMember(collection, key)) return false;
  } else {
    if (!sendInside(collection, begun)) return false;
  }
  if (!members.walking()) return true;
  if (key == std::numeric_limits<U32>::max()) {
    members.walkingDel();
    members.bookmarkIs({});
  } else {
    members.bookmarkIs(key + 1);
  }
  return true;
}

// What changed inside members that the peer has, in rounds, each with a turn that begins with room:
// no member waits for ever behind a busy one.
bool EntitySa::sendInside(const CollectionInfo& collection) {
  FlowOut::Members& members = flow_.members();
  auto& flows = members.flows();
  while (!flows.empty()) {
    auto next = flows.lower_bound(members.nextFlow());
    if (next == flows.end()) next = flows.begin();
    if (!out_.sufficientBuffer()) return false;
    members.nextFlowIs(next->first + 1);  // behind the last key it is the first one's turn
    if (!sendInside(collection, next)) return false;
  }
  return true;
}

// Of one member, which may have gone since: its removal is told elsewhere.
bool EntitySa::sendInside(const CollectionInfo& collection,
                          std::map<U32, FlowOut>::iterator inside) {
  const U32 key = inside->first;
  const EntityBase* member = collection.find(entity_, key);
  if (member != nullptr &&
      !EntitySa(out_, *member, inside->second, ref_.member(key)).handleAttrFlowOut()) {
    return false;
  }
  flow_.members().flows().erase(inside);
  return true;
}

void EntitySa::sendBegin(const CollectionInfo& collection) {
  FlowOut::Members& members = flow_.members();
  const U8 resumed = members.begun() ? transactionResumed : 0;
  sendMarker(FrameType::begin, collection, resumed);
  members.begunIs(true);
}

void EntitySa::sendEnd(const CollectionInfo& collection, bool all) {
  FlowOut::Members& members = flow_.members();
  sendMarker(FrameType::end, collection, all ? 0 : transactionMore);
  if (!all) return;
  members.begunIs(false);
  members.wholeDel();
}

void EntitySa::sendMarker(FrameType type, const CollectionInfo& collection, U8 flag) {
  const U8 whole = flow_.members().whole() ? transactionWhole : 0;
  out_.begin(type);
  out_.ref(ref_);
  out_.u16(static_cast<U16>(collection.id));
  out_.u8(static_cast<U8>(whole | flag));
  out_.end();
}

}  // namespace Mox::NboAttrLog
