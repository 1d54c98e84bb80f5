#include <NboAttrLog/TreeIn.h>

#include <algorithm>

#include <Mox/Errors.h>
#include <Mox/TypeInfo.h>

namespace Mox::NboAttrLog {

namespace {

// The peer has attributes at the end of a table that this side does not know. What stands behind
// the first of them is as unknown, since identifiers ascend within a frame. Copies do without them;
// a writer is refused instead, because it would take its value for written.
bool isOfLaterBuild(const EntityBase& entity, AttrId id) {
  return id > entity.type().attrs.back().id;
}

}  // namespace

EntityBase* TreeIn::find(const Ref& ref) const {
  EntityBase* at = entity_.get();
  for (U8 level = 0; at != nullptr && level < ref.depth; ++level) {
    const auto collections = at->type().collections;
    at = collections.empty() ? nullptr : collections.front().find(*at, ref.keys.at(level));
  }
  return at;
}

void TreeIn::checkWritable(const EntityBase& entity, const std::string& peerName) const {
  if (writable_) return;
  throw InternalError("write-update from readonly proxy: " + entity.fullName() +
                      " peerName: " + peerName);
}

const CollectionInfo* TreeIn::collection(const EntityBase& entity, AttrId id) const {
  const auto collections = entity.type().collections;
  if (collections.empty() || collections.front().id != id) return nullptr;
  return collections.front().add == nullptr ? nullptr : &collections.front();
}

std::string TreeIn::readValues(const EntityBase& entity, Reader& in) {
  values_.clear();
  while (!in.atEnd()) {
    const AttrId id = in.u16();
    if (out_.copy() != TreeOut::Copy::original && isOfLaterBuild(entity, id)) return {};
    const AttrInfo* attr = entity.type().attr(id);
    if (attr == nullptr || attr->set == nullptr) {
      return std::string("an attribute that ") + entity.typeName() + " does not receive";
    }
    values_.push_back({attr, in.value(attr->value)});
    if (!in.ok()) return std::string("an invalid value of ") + attr->name;
  }
  return {};
}

// All values are read before the first is written: some are valid only together.
std::string TreeIn::handleAttrDeserialization(const Ref& ref, Reader& in, Host& host,
                                              const std::string& peerName) {
  const Ptr<EntityBase> entity = find(ref);
  if (!entity) return "attributes of a member that does not exist";
  checkWritable(*entity, peerName);
  std::string fault = readValues(*entity, in);
  if (fault.empty()) fault = host.whyRefused(*entity, values_);
  if (!fault.empty()) return fault;
  for (const auto& [attr, value] : values_) {
    const TreeOut::Receiving receiving(out_, *entity, attr->id);
    try {
      attr->set(*entity, value);
    } catch (const RangeError& error) {
      return std::string(attr->name) + ": " + error.what();
    }
  }
  return {};
}

std::string TreeIn::handleAddition(const Ref& ref, Reader& in, const std::string& peerName) {
  const AttrId id = in.u16();
  const std::string_view type = in.text();
  const U32 key = in.u32();
  if (!in.complete() || ref.depth == 0 || ref.keys.at(ref.depth - 1u) != key) {
    return "an addition that contradicts itself";
  }
  Ref above = ref;
  --above.depth;
  above.keys.at(above.depth) = 0;
  const Ptr<EntityBase> entity = find(above);
  if (!entity) return "an addition to a member that does not exist";
  checkWritable(*entity, peerName);
  const CollectionInfo* members = collection(*entity, id);
  if (members == nullptr) return "an addition to what is not a collection";
  if (members->memberType().name != type) return "an addition of a type that does not belong";
  const TreeOut::Receiving receiving(out_, *entity, id);
  // A copy that outlived a connection has members that this one does not watch yet.
  members->add(*entity, key)->treeWatchedIs();
  named(above, key);
  return {};
}

std::string TreeIn::handleRemoval(const Ref& ref, Reader& in, const std::string& peerName) {
  const AttrId id = in.u16();
  const U32 key = in.u32();
  if (!in.complete()) return "a removal that is too short or too long";
  const Ptr<EntityBase> entity = find(ref);
  if (!entity) return "a removal from a member that does not exist";
  checkWritable(*entity, peerName);
  const CollectionInfo* members = collection(*entity, id);
  if (members == nullptr) return "a removal from what is not a collection";
  remove(*entity, *members, ref, key);
  named(ref, key);
  return {};
}

std::string TreeIn::handleAttrTransaction(const Ref& ref, FrameType type, Reader& in,
                                          const std::string& peerName) {
  const AttrId id = in.u16();
  const U8 flags = in.u8();
  if (!in.complete()) return "a transaction marker that is too short or too long";
  const Ptr<EntityBase> entity = find(ref);
  if (!entity) return "a transaction of a member that does not exist";
  checkWritable(*entity, peerName);
  const CollectionInfo* members = collection(*entity, id);
  if (members == nullptr) return "a transaction of what is not a collection";
  if ((flags & transactionWhole) == 0) return {};
  if (type == FrameType::begin && (flags & transactionResumed) == 0) {
    const std::vector<U32> keys = members->keys(*entity);
    notNamed_[ref] = {keys.begin(), keys.end()};
  } else if (type == FrameType::end && (flags & transactionMore) == 0) {
    const auto unnamed = notNamed_.extract(ref);
    if (unnamed.empty()) return {};
    for (const U32 key : unnamed.mapped()) remove(*entity, *members, ref, key);
  }
  return {};
}

void TreeIn::named(const Ref& ref, U32 key) {
  if (notNamed_.empty()) return;
  const auto found = notNamed_.find(ref);
  if (found != notNamed_.end()) found->second.erase(key);
}

void TreeIn::remove(EntityBase& entity, const CollectionInfo& collection, const Ref& ref, U32 key) {
  const TreeOut::Receiving receiving(out_, entity, collection.id);
  collection.remove(entity, key);
  // Walks inside the member ended with it.
  const Ref below = ref.member(key);
  std::erase_if(notNamed_, [&](const auto& walk) {
    return walk.first.depth >= below.depth &&
           std::equal(below.keys.begin(), below.keys.begin() + below.depth,
                      walk.first.keys.begin());
  });
}

}  // namespace Mox::NboAttrLog
