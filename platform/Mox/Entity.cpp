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

EntityBase::Hearers& EntityBase::hearersMade() const {
  if (hearers_ == nullptr) hearers_ = std::make_unique<Hearers>();
  return *hearers_;
}

void EntityBase::notifieeAdd(Notifiee* notifiee) const { hearersMade().own.add(notifiee); }

void EntityBase::notifieeRemove(const Notifiee* notifiee) const {
  if (hearers_ != nullptr) hearers_->own.remove(notifiee);
}

void EntityBase::treeNotifieeAdd(TreeNotifiee* notifiee) const {
  hearersMade().tree.add(notifiee);
  treeHeard_ = true;
}

void EntityBase::treeNotifieeRemove(const TreeNotifiee* notifiee) const {
  if (hearers_ != nullptr) hearers_->tree.remove(notifiee);
}

namespace {

// Holds the entity while it tells: a notifiee may let go of the last other pointer to it. An entity
// that tells from its destructor has no count left and is past holding: counting it up and down
// again would destroy it a second time.
Ptr<const EntityBase> held(const EntityBase* entity) {
  return entity->refs() == 0 ? nullptr : entity;
}

}  // namespace

template <class F, class G>
void EntityBase::tell(F&& tellOwn, G&& tellTree) const {
  const Ptr<const EntityBase> alive = held(this);
  if (hearers_ != nullptr) hearers_->own.walk(tellOwn);
  if (!treeHeard_) return;
  const EntityBase* outermost = this;
  while (outermost->parent_ != nullptr) outermost = outermost->parent_;
  if (outermost->hearers_ == nullptr || outermost->hearers_->tree.empty()) {
    treeHeard_ = false;  // the last tree notifiee has gone: from now on a change costs nothing
    return;
  }
  const Ptr<const EntityBase> root = held(outermost);
  outermost->hearers_->tree.walk(tellTree);
}

void EntityBase::tellAttr(AttrId id) const {
  tell([&](Notifiee& n) { n.onAttr(id); }, [&](TreeNotifiee& n) { n.onAttr(*this, id); });
}

void EntityBase::tellMember(AttrId id, U32 key) const {
  tell([&](Notifiee& n) { n.onMember(id, key); },
       [&](TreeNotifiee& n) { n.onMember(*this, id, key); });
}

void EntityBase::tellCollection(AttrId id) const {
  tell([&](Notifiee& n) { n.onCollection(id); },
       [&](TreeNotifiee& n) { n.onCollection(*this, id); });
}

}  // namespace Mox
