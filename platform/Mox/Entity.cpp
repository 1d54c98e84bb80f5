#include <Mox/Entity.h>

#include <array>

namespace Mox {

namespace {
const EntityBase& entityOf(const Object& object) { return static_cast<const EntityBase&>(object); }
}  // namespace

EntityBase::~EntityBase() = default;

namespace {

constexpr std::array<AttrInfo, 4> frameworkAttrs{
    AttrInfo{.id = 253,
             .name = "fullName",
             .kind = AttrKind::derived,
             .typeName = "string",
             .get = [](const Object& o) -> Value { return entityOf(o).fullName(); },
             .text = [](const Object& o) { return entityOf(o).fullName(); }},
    AttrInfo{.id = 254,
             .name = "parent",
             .kind = AttrKind::derived,
             .typeName = EntityBase::valueTypeName,
             .held = [](const Object& o) -> const Object* { return entityOf(o).parent(); }},
    AttrInfo{.id = 255,
             .name = "parentAttrName",
             .kind = AttrKind::derived,
             .typeName = "string",
             .get = [](const Object& o) -> Value { return entityOf(o).parentAttrName(); },
             .text = [](const Object& o) { return entityOf(o).parentAttrName(); }},
    AttrInfo{.id = 256,
             .name = "entity",
             .kind = AttrKind::derived,
             .typeName = EntityBase::valueTypeName,
             .held = [](const Object& o) -> const Object* { return entityOf(o).entity(); }},
};
static_assert(frameworkAttrs.back().id < entityFirstAttrId);

}  // namespace

std::span<const AttrInfo> entityFrameworkAttrs() { return frameworkAttrs; }

std::string EntityBase::parentAttrName() const {
  const char* name = parent_ == nullptr ? nullptr : parent_->attrName(parentAttr_);
  return name == nullptr ? "" : name;
}

std::string EntityBase::fullName() const {
  if (parent_ != nullptr) {
    return parent_->fullName() + "/" + parentAttrName() + "[" + keyText() + "]";
  }
  const std::string own = entityName();
  return own.empty() ? typeName() : own;
}

const char* EntityBase::attrName(AttrId id) const {
  const AttrInfo* attr = type().attr(id);
  return attr == nullptr ? nullptr : attr->name;
}

EntityBase::Notifiees& EntityBase::notifieesMade() const {
  if (notifiees_ == nullptr) notifiees_ = std::make_unique<Notifiees>();
  return *notifiees_;
}

const NotifieeList<Notifiee>& EntityBase::notifieeList() const {
  static const NotifieeList<Notifiee> none;
  return notifiees_ == nullptr ? none : notifiees_->own;
}

void EntityBase::notifieeAdd(Notifiee* notifiee) const { notifieesMade().own.add(notifiee); }

void EntityBase::notifieeRemove(const Notifiee* notifiee) const {
  if (notifiees_ != nullptr) notifiees_->own.remove(notifiee);
}

void EntityBase::treeNotifieeAdd(TreeNotifiee* notifiee) const {
  notifieesMade().tree.add(notifiee);
  treeWatched_ = true;
}

void EntityBase::treeNotifieeRemove(const TreeNotifiee* notifiee) const {
  if (notifiees_ != nullptr) notifiees_->tree.remove(notifiee);
}

namespace {

// Holds the entity during a notification: a notifiee may release the last other pointer to it. An
// entity that notifies from its destructor has no count left and cannot be held: counting it up and
// down again would destroy it a second time.
Ptr<const EntityBase> held(const EntityBase* entity) {
  return entity->refs() == 0 ? nullptr : entity;
}

}  // namespace

template <class F, class G>
void EntityBase::notifyAll(F&& notifyOwn, G&& notifyTree) const {
  const Ptr<const EntityBase> alive = held(this);
  if (notifiees_ != nullptr) notifiees_->own.walk(notifyOwn);
  if (!treeWatched_) return;
  const EntityBase* outermost = this;
  while (outermost->parent_ != nullptr) outermost = outermost->parent_;
  if (outermost->notifiees_ == nullptr || outermost->notifiees_->tree.empty()) {
    treeWatched_ = false;  // the last tree notifiee has gone: from now on a change costs nothing
    return;
  }
  const Ptr<const EntityBase> root = held(outermost);
  outermost->notifiees_->tree.walk(notifyTree);
}

void EntityBase::attrNotify(AttrId id) const {
  notifyAll([&](Notifiee& n) { n.onAttr(id); }, [&](TreeNotifiee& n) { n.onAttr(*this, id); });
}

void EntityBase::memberNotify(AttrId id, U32 key) const {
  notifyAll([&](Notifiee& n) { n.onMember(id, key); },
            [&](TreeNotifiee& n) { n.onMember(*this, id, key); });
}

void EntityBase::memberGoneNotify(AttrId id, const EntityBase& member) const {
  notifyAll([](Notifiee&) {}, [&](TreeNotifiee& n) { n.onMemberGone(*this, id, member); });
}

void EntityBase::collectionNotify(AttrId id) const {
  notifyAll([&](Notifiee& n) { n.onCollection(id); },
            [&](TreeNotifiee& n) { n.onCollection(*this, id); });
}

}  // namespace Mox
