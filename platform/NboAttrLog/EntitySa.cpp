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
  if (from == 0 && !sendAfterInterrupted()) return false;
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

// Where members change faster than the peer reads, walks never end. So the attributes after an
// interrupted walk do not wait for its end. They do wait for the walk through the collection
// itself, which ends.
bool EntitySa::sendAfterInterrupted() {
  const FlowOut::Members* members = flow_.membersIfAny();
  if (members == nullptr || !isInterrupted(members->walk())) return true;
  const CollectionInfo& collection = entity_.type().collections.front();
  return isInCollection(members->walk()) || handleAttrFlowOut(collection.id + 1);
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
  if (const Stop stop = hasLeaves(collection) ? sendLeaves(collection) : sendMembers(collection)) {
    flow_.members().walkStopped(*stop);
    return false;
  }
  flow_.attrDirtyDel(collection.id);
  flow_.membersDel();
  return true;
}

EntitySa::Stop EntitySa::sendMembers(const CollectionInfo& collection) {
  const FlowOut::Members& members = flow_.members();
  if (isInsideFirst(members.walk()) && !sendInside(collection)) return WalkStop::beforeKeys;
  if (members.hasRecords()) {
    if (const Stop stop = sendRecords(collection)) return stop;
  }
  if (!sendInside(collection)) return WalkStop::inside;
  return {};
}

// One walk, or the part of it for which there is room.
EntitySa::Stop EntitySa::sendRecords(const CollectionInfo& collection) {
  Stop stop;
  sendBegin(collection);
  if (isInCollection(flow_.members().walk()) && !sendCollection(collection)) {
    stop = WalkStop::collection;
  } else if (!sendKeys(collection)) {
    stop = WalkStop::keys;
  }
  sendEnd(collection, stop);
  return stop;
}

// Every member, from the bookmark on.
bool EntitySa::sendCollection(const CollectionInfo& collection) {
  FlowOut::Members& members = flow_.members();
  auto key = collection.next(entity_, members.bookmark().value_or(0));
  while (key) {
    members.bookmarkIs(key);
    if (!out_.sufficientBuffer() || !sendOrResumeMember(collection, *key)) return false;
    if (*key == std::numeric_limits<U32>::max()) break;
    key = collection.next(entity_, *key + 1);
  }
  members.bookmarkIs({});
  return true;
}

// The members that came or went: those from the bookmark on, then those before it.
bool EntitySa::sendKeys(const CollectionInfo& collection) {
  FlowOut::Members& members = flow_.members();
  const auto& dirty = members.dirty();
  while (!dirty.empty()) {
    auto next = dirty.lower_bound(members.bookmark().value_or(0));
    if (next == dirty.end()) next = dirty.begin();
    const U32 key = next->first;
    members.bookmarkIs(key);
    if (!out_.sufficientBuffer()) return false;
    members.dirtyDel(key);
    if (!sendMember(collection, key)) return false;
  }
  members.bookmarkIs({});
  return true;
}

// Leaves have no order, so no bookmark is needed: those that are still remembered are due.
EntitySa::Stop EntitySa::sendLeaves(const CollectionInfo& collection) {
  FlowOut::Members& members = flow_.members();
  if (members.walk() == WalkState::wholeDue) {
    for (const U32 key : collection.keys(entity_)) {
      members.leafIs(key, FlowOut::Members::leafRecord);
    }
  }
  const bool walk = members.hasRecords();
  Stop stop;
  if (walk) sendBegin(collection);
  for (const U32 key : members.leafKeys()) {
    if (out_.sufficientBuffer() && sendLeaf(collection, key)) continue;
    stop = !walk                            ? WalkStop::inside
           : isInCollection(members.walk()) ? WalkStop::collection
                                            : WalkStop::keys;
    break;
  }
  if (walk) sendEnd(collection, stop);
  return stop;
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

// Sends the record of a member, or the rest of it if the stream was full within it. After the
// announcement, changes inside the member are remembered in its own FlowOut.
bool EntitySa::sendOrResumeMember(const CollectionInfo& collection, U32 key) {
  FlowOut::Members& members = flow_.members();
  const auto begun = members.flows().find(key);
  if (begun != members.flows().end()) return sendInside(collection, begun);
  members.dirtyDel(key);
  return sendMember(collection, key);
}

// Changes inside members that the peer has, in rounds. A member's turn begins with room in the
// stream, so that no member waits for ever while another one changes all the time.
bool EntitySa::sendInside(const CollectionInfo& collection) {
  FlowOut::Members& members = flow_.members();
  auto& flows = members.flows();
  while (!flows.empty()) {
    auto next = flows.lower_bound(members.nextFlow());
    if (next == flows.end()) next = flows.begin();
    if (!out_.sufficientBuffer()) return false;
    members.nextFlowIs(next->first + 1);  // after the last key the round begins at the first
    if (!sendInside(collection, next)) return false;
  }
  return true;
}

// Changes inside one member. Its removal, if it was removed since, is sent as a record.
bool EntitySa::sendInside(const CollectionInfo& collection,
                          FlowOut::Members::Flows::iterator inside) {
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
  const bool resumed = isBegun(flow_.members().walk());
  sendMarker(FrameType::begin, collection, resumed ? transactionResumed : 0);
}

void EntitySa::sendEnd(const CollectionInfo& collection, Stop stop) {
  sendMarker(FrameType::end, collection, stop ? transactionMore : 0);
}

void EntitySa::sendMarker(FrameType type, const CollectionInfo& collection, U8 flag) {
  const U8 whole = isWhole(flow_.members().walk()) ? transactionWhole : 0;
  out_.begin(type);
  out_.ref(ref_);
  out_.u16(static_cast<U16>(collection.id));
  out_.u8(static_cast<U8>(whole | flag));
  out_.end();
}

}  // namespace Mox::NboAttrLog
