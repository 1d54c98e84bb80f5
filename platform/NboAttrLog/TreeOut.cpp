#include <NboAttrLog/TreeOut.h>

#include <algorithm>
#include <utility>

#include <Mox/Errors.h>
#include <MoxBase/Fatal.h>

namespace Mox::NboAttrLog {

namespace {

// More than one key is forgotten for each that was remembered.
constexpr size_t keysGivenBack = 2;
constexpr size_t keysGivenBackByDrain = 256;

}  // namespace

// Building frames calls no code outside this module. A call that enters again breaks that rule, and
// would write a frame into the middle of another.
class TreeOut::Delivering {
 public:
  explicit Delivering(TreeOut& tree) : tree_(tree) {
    if (tree.delivering_) throw InternalError("entity reactor is already active");
    tree.delivering_ = true;
  }
  ~Delivering() { tree_.delivering_ = false; }
  Delivering(const Delivering&) = delete;
  Delivering& operator=(const Delivering&) = delete;

 private:
  TreeOut& tree_;
};

TreeOut::TreeOut(Host& host, U32 number, std::string path, Ptr<EntityBase> entity, Copy copy,
                 bool writable)
    : host_(host),
      number_(number),
      path_(std::move(path)),
      entity_(std::move(entity)),
      copy_(copy),
      writable_(writable) {
  fatalUnless(entity_->parent() == nullptr, "NboAttrLog", "a directory entry has no parent");
  if (copy == Copy::original) {
    flow_ = FlowOut::everythingOf(entity_->type());
    host_.deferredIs();
  } else {
    announced_ = true;
  }
  entity_->treeNotifieeAdd(this);
}

TreeOut::~TreeOut() { entity_->treeNotifieeRemove(this); }

bool TreeOut::drain() {
  FlowOut::giveBack(keysGivenBackByDrain);
  const Delivering delivering(*this);
  EntitySa sa(host_.out(), *entity_, flow_, {.root = number_});
  if (!announced_) {
    if (!host_.out().sufficientBuffer()) return false;
    sa.doSerializeOrphan(path_, writable_);
    announced_ = true;
  }
  return !flow_.hasDirtyAttributes() || sa.handleAttrFlowOut();
}

bool TreeOut::concerns(const EntityBase& entity, AttrId id) const {
  if (&entity == receivingEntity_ && id == receivingId_) return false;
  if (copy_ == Copy::readOnly) throw ReadOnlyError(entity.attrName(id));
  return true;
}

void TreeOut::onAttr(const EntityBase& entity, AttrId id) {
  if (!FlowOut::flows(*entity.type().attr(id)) || !concerns(entity, id)) return;
  const Delivering delivering(*this);
  const Ref ref = refOf(entity);
  if (host_.deferred() || !host_.out().sufficientBuffer()) {
    remembered(ref, FlowOut::bitOf(id));
    return;
  }
  FlowOut nothingLeft;
  EntitySa(host_.out(), entity, nothingLeft, ref).sendAttr(id);
  host_.transmit();
}

void TreeOut::onMember(const EntityBase& entity, AttrId id, U32 key) {
  if (!concerns(entity, id)) return;
  const Delivering delivering(*this);
  const Ref ref = refOf(entity);
  const CollectionInfo& collection = entity.type().collections.front();
  if (host_.deferred() || !host_.out().sufficientBuffer()) {
    if (FlowOut* flow = remembered(ref, FlowOut::bitOf(id))) {
      if (hasLeaves(collection)) {
        flow->members().leafIs(key, FlowOut::Members::leafRecord);
      } else {
        flow->members().dirtyIs(key, true);
      }
      keepBounded(*flow, collection.size(entity));
    }
    return;
  }
  FlowOut left;
  if (!EntitySa(host_.out(), entity, left, ref).sendMember(collection, key)) {
    if (FlowOut* flow = remembered(ref, left.dirtyBits())) *flow = std::move(left);
  }
  host_.transmit();
}

// Bounds the memory for members that come and go while the peer takes nothing: a walk that names
// the existing members has the same effect.
void TreeOut::keepBounded(FlowOut& flow, size_t members) {
  if (flow.members().records() <= 2 * members + keysAlwaysKept) return;
  flow.membersDel();
  flow.members().wholeDueIs();
}

// The collection as a whole: every member is sent again, so that the peer can remove all others.
void TreeOut::onCollection(const EntityBase& entity, AttrId id) {
  if (!concerns(entity, id)) return;
  const Delivering delivering(*this);
  if (FlowOut* flow = remembered(refOf(entity), FlowOut::bitOf(id))) {
    flow->membersDel();
    flow->members().wholeDueIs();
  }
  host_.transmit();
}

Ref TreeOut::refOf(const EntityBase& entity) const {
  Ref ref{.root = number_};
  for (const EntityBase* at = &entity; at->parent() != nullptr; at = at->parent()) {
    ref.keys.at(ref.depth++) = at->key();
  }
  std::reverse(ref.keys.begin(), ref.keys.begin() + ref.depth);
  return ref;
}

FlowOut* TreeOut::remembered(const Ref& ref, U64 bits) {
  FlowOut::giveBack(keysGivenBack);
  host_.deferredIs();
  FlowOut* flow = &flow_;
  const TypeInfo* type = &entity_->type();
  for (U8 level = 0; level < ref.depth; ++level) {
    const CollectionInfo& collection = type->collections.front();
    const U32 key = ref.keys.at(level);
    FlowOut::Members& members = flow->members();
    if (members.covers(key)) return nullptr;
    flow->attrDirtyIs(collection.id);
    if (hasLeaves(collection)) {
      members.leafIs(key, bits);
      return nullptr;
    }
    flow = &members.flows()[key];
    type = &collection.memberType();
  }
  flow->dirtyBitsAdd(bits);
  return flow;
}

TreeOut::Receiving::Receiving(TreeOut& tree, const EntityBase& entity, AttrId id)
    : tree_(tree), outerEntity_(tree.receivingEntity_), outerId_(tree.receivingId_) {
  tree.receivingEntity_ = &entity;
  tree.receivingId_ = id;
}

TreeOut::Receiving::~Receiving() {
  tree_.receivingEntity_ = outerEntity_;
  tree_.receivingId_ = outerId_;
}

}  // namespace Mox::NboAttrLog
