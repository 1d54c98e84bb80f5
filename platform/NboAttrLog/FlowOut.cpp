#include <Mox/NboAttrLog/FlowOut.h>

#include <Mox/Fatal.h>

namespace Mox::NboAttrLog {

namespace {

// What a peer learns of an attribute otherwise, or computes itself, is not sent.
bool flows(const AttrInfo& attr) {
  return attr.kind == AttrKind::stored || attr.kind == AttrKind::counter ||
         attr.kind == AttrKind::collection;
}

}  // namespace

FlowOut FlowOut::everythingOf(const TypeInfo& type) {
  FlowOut all;
  for (const AttrInfo& attr : type.attrs) {
    if (flows(attr)) all.attrDirtyIs(attr.id);
  }
  if (!type.collections.empty()) all.members().wholeIs();
  return all;
}

U32 FlowOut::bitOf(AttrId id) {
  const U32 bit = id - entityFirstAttrId - 1;
  fatalUnless(bit < 32, "NboAttrLog", "an attribute without a dirty bit was changed");
  return U32{1} << bit;
}

bool FlowOut::hasDirtyAttributes() const {
  return dirty_ != 0 || (members_ != nullptr && !members_->empty());
}

FlowOut::Members& FlowOut::members() {
  if (members_ == nullptr) members_ = std::make_unique<Members>();
  return *members_;
}

void FlowOut::Members::dirtyIs(U32 key, bool value) {
  dirty_[key] = value;
  flows_.erase(key);  // its record will carry all of it
}

bool FlowOut::Members::covers(U32 key) const {
  if (dirty_.contains(key)) return true;
  return walking_ && key >= bookmark_.value_or(0) && !flows_.contains(key);
}

}  // namespace Mox::NboAttrLog
