#include <NboAttrLog/FlowOut.h>

#include <algorithm>
#include <utility>

#include <MoxBase/Fatal.h>

namespace Mox::NboAttrLog {

bool FlowOut::flows(const AttrInfo& attr) {
  if (attr.kind == AttrKind::collection) return true;
  return (attr.kind == AttrKind::stored || attr.kind == AttrKind::counter) && attr.set != nullptr;
}

FlowOut FlowOut::everythingOf(const TypeInfo& type) {
  FlowOut all;
  for (const AttrInfo& attr : type.attrs) {
    if (flows(attr)) all.attrDirtyIs(attr.id);
  }
  if (!type.collections.empty()) all.members().wholeDueIs();
  return all;
}

U64 FlowOut::bitOf(AttrId id) {
  const U32 bit = id - entityFirstAttrId - 1;
  fatalUnless(bit < attrBits, "NboAttrLog", "an attribute without a dirty bit was changed");
  return U64{1} << bit;
}

bool FlowOut::hasDirtyAttributes() const {
  return dirty_ != 0 || (members_ != nullptr && !members_->empty());
}

namespace {

using Forgotten = std::vector<std::unique_ptr<FlowOut::Members>>;
constexpr size_t fewKeys = 64;

// Never destroyed: a process may end with flows that are.
Forgotten& forgotten() {
  static auto& all = *new Forgotten;
  return all;
}

}  // namespace

FlowOut& FlowOut::operator=(FlowOut&& other) noexcept {
  membersDel();
  dirty_ = other.dirty_;
  members_ = std::move(other.members_);
  return *this;
}

FlowOut::~FlowOut() { membersDel(); }

void FlowOut::membersDel() {
  if (members_ != nullptr && members_->keysInTrees() > fewKeys) {
    forgotten().push_back(std::move(members_));
  }
  members_.reset();
}

bool FlowOut::giveBack(size_t keys) {
  Forgotten& all = forgotten();
  while (keys > 0 && !all.empty()) {
    Members& members = *all.back();
    const size_t step = std::min(keys, members.keysInTrees());
    const size_t before = all.size();
    members.keysDel(step);  // members inside may be forgotten, too, and come behind it
    keys -= step;
    if (members.keysInTrees() == 0) all.erase(all.begin() + static_cast<ptrdiff_t>(before) - 1);
  }
  return !all.empty();
}

size_t FlowOut::Members::keysInTrees() const {
  return inner_ == nullptr ? 0 : inner_->dirty.size() + inner_->flows.size();
}

void FlowOut::Members::keysDel(size_t most) {
  for (; most > 0 && !inner_->dirty.empty(); --most) inner_->dirty.erase(inner_->dirty.begin());
  for (; most > 0 && !inner_->flows.empty(); --most) inner_->flows.erase(inner_->flows.begin());
}

FlowOut::Members& FlowOut::members() {
  if (members_ == nullptr) members_ = std::make_unique<Members>();
  return *members_;
}

FlowOut::Members::Inner& FlowOut::Members::inner() {
  if (inner_ == nullptr) inner_ = std::make_unique<Inner>();
  return *inner_;
}

const FlowOut::Members::Dirty& FlowOut::Members::dirty() const {
  static const Dirty none;
  return inner_ == nullptr ? none : inner_->dirty;
}

void FlowOut::Members::dirtyIs(U32 key, bool value) {
  inner().dirty[key] = value;
  inner().flows.erase(key);  // its record will carry all of it
}

void FlowOut::Members::dirtyDel(U32 key) { inner().dirty.erase(key); }

std::optional<U32> FlowOut::Members::bookmark() const {
  return inner_ == nullptr ? std::nullopt : inner_->bookmark;
}

void FlowOut::Members::bookmarkIs(std::optional<U32> key) { inner().bookmark = key; }

FlowOut::Members::Flows& FlowOut::Members::flows() { return inner().flows; }

U32 FlowOut::Members::nextFlow() const { return inner_ == nullptr ? 0 : inner_->nextFlow; }

void FlowOut::Members::nextFlowIs(U32 key) { inner().nextFlow = key; }

std::vector<U32> FlowOut::Members::leafKeys() const {
  std::vector<U32> keys;
  keys.reserve(leaves_.size());
  for (const auto& leaf : leaves_) keys.push_back(leaf.key.value());
  if (keys.empty()) return keys;
  const auto first = static_cast<std::ptrdiff_t>(leavesTaken_ % keys.size());
  std::rotate(keys.begin(), keys.begin() + first, keys.end());
  return keys;
}

void FlowOut::Members::leafIs(U32 key, U64 bits) {
  fatalUnless(bits <= leafRecord, "NboAttrLog", "an attribute of a leaf has no dirty bit");
  const U32* known = leaves_.find(LeafKey(key));
  const U32 before = known == nullptr ? 0 : *known;
  if (before == leafRecord) return;  // its record will carry all of it
  if (bits == leafRecord) ++leafRecords_;
  leaves_.insert(LeafKey(key), bits == leafRecord ? leafRecord : before | static_cast<U32>(bits));
}

U32 FlowOut::Members::leafTake(U32 key) {
  const U32* known = leaves_.find(LeafKey(key));
  const U32 bits = known == nullptr ? 0 : *known;
  if (bits == leafRecord) --leafRecords_;
  leaves_.erase(LeafKey(key));
  ++leavesTaken_;
  return bits;
}

bool FlowOut::Members::covers(U32 key) const {
  if (walk_ == WalkState::wholeDue) return true;
  if (inner_ == nullptr) return false;
  if (inner_->dirty.contains(key)) return true;
  return isInCollection(walk_) && key >= inner_->bookmark.value_or(0) &&
         !inner_->flows.contains(key);
}

bool FlowOut::Members::hasRecords() const {
  return isWhole(walk_) || isBegun(walk_) || leafRecords_ != 0 || !dirty().empty();
}

bool FlowOut::Members::empty() const {
  return !hasRecords() && leaves_.empty() && (inner_ == nullptr || inner_->flows.empty());
}

}  // namespace Mox::NboAttrLog
