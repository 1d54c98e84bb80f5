#include <Mox/Entity.h>

namespace Mox {

EntityBase::~EntityBase() = default;

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

void EntityBase::notifieeAdd(Notifiee* notifiee) const {
  if (notifiees_ == nullptr) notifiees_ = std::make_unique<NotifieeList>();
  notifiees_->add(notifiee);
}

void EntityBase::notifieeRemove(const Notifiee* notifiee) const {
  if (notifiees_ != nullptr) notifiees_->remove(notifiee);
}

namespace {

// Holds the entity while it tells: a notifiee may let go of the last other pointer to it. An entity
// that tells from its destructor has no count left and is past holding: counting it up and down
// again would destroy it a second time.
Ptr<const EntityBase> held(const EntityBase* entity) {
  return entity->refs() == 0 ? nullptr : entity;
}

}  // namespace

void EntityBase::tellAttr(AttrId id) const {
  const Ptr<const EntityBase> alive = held(this);
  notifiees_->walk([&](Notifiee& n) { n.onAttr(id); });
}

void EntityBase::tellMember(AttrId id, U32 key) const {
  const Ptr<const EntityBase> alive = held(this);
  notifiees_->walk([&](Notifiee& n) { n.onMember(id, key); });
}

void EntityBase::tellCollection(AttrId id) const {
  const Ptr<const EntityBase> alive = held(this);
  notifiees_->walk([&](Notifiee& n) { n.onCollection(id); });
}

}  // namespace Mox
