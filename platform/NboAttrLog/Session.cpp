#include <NboAttrLog/Session.h>

#include <utility>

#include <Mox/ActivityClock.h>
#include <Mox/Errors.h>
#include <Mox/TypeInfo.h>

namespace Mox::NboAttrLog {

Ptr<EntityBase> SessionHost::rootIs(std::string_view, std::string_view, const Value&) { return {}; }
void SessionHost::rootDel(std::string_view) {}
void SessionHost::onAnswer(U32) {}
std::string SessionHost::whyRefused(const EntityBase&, std::span<const Written>) { return {}; }

Session::Session(SessionHost& host, Setup setup, Directory* directory)
    : host_(host), setup_(std::move(setup)), directory_(directory), out_(setup_.bufferBytes) {
  sendHello();
  if (!serving()) return;
  directory_->followerAdd(this);
  currentDue_ = true;
  deferredIs();  // an empty directory has a notice to send, too
  for (const auto& [number, entry] : directory_->entries()) serve(number, entry);
}

Session::~Session() {
  if (serving()) directory_->followerRemove(this);
}

void Session::sendHello() {
  out_.begin(FrameType::hello);
  out_.u32(magic);
  out_.u16(protocolVersion);
  out_.seconds(now());
  out_.u8(static_cast<U8>(setup_.rights));
  out_.text(setup_.name);
  out_.end();
}

void Session::serve(U32 number, const Directory::Entry& entry) {
  const bool writable = entry.access == Access::configurable && setup_.rights == Rights::configure;
  Tree& tree = trees_[number];
  tree.path = entry.path;
  tree.out = std::make_unique<TreeOut>(static_cast<TreeOut::Host&>(*this), number, entry.path,
                                       entry.entity, TreeOut::Copy::original, writable);
  tree.in = std::make_unique<TreeIn>(entry.entity, writable, *tree.out);
}

void Session::onEntry(U32 number) {
  const auto entry = directory_->entries().find(number);
  if (entry != directory_->entries().end()) return serve(number, entry->second);
  const auto tree = trees_.find(number);
  if (tree == trees_.end()) return;  // another follower removed it before this one was notified
  if (tree->second.out->announced()) gone_.push_back(number);
  trees_.erase(tree);
  deferredIs();
}

void Session::deferredIs() {
  const bool before = std::exchange(deferred_, true);
  if (!before && greeted_) host_.onOutput();
}

std::string Session::whyRefused(const EntityBase& entity, std::span<const Written> values) {
  return host_.whyRefused(entity, values);
}

void Session::drain() {
  if (!greeted_ || !deferred_ || !fault_.empty()) return;
  deferred_ = !(drainGone() && drainTrees() && drainNotices());
}

// Before the trees: the end of an entry is sent before its path is announced again.
bool Session::drainGone() {
  while (!gone_.empty()) {
    if (!out_.sufficientBuffer()) return false;
    out_.begin(FrameType::rootGone);
    out_.u32(gone_.back());
    out_.end();
    gone_.pop_back();
  }
  return true;
}

// In rounds: a turn begins with room in the stream, so that no tree waits for ever while another
// one changes all the time.
bool Session::drainTrees() {
  for (size_t done = 0; done < trees_.size(); ++done) {
    auto tree = trees_.lower_bound(nextTree_);
    if (tree == trees_.end()) tree = trees_.begin();
    nextTree_ = tree->first;
    if (!out_.sufficientBuffer()) return false;
    ++nextTree_;
    if (tree->second.out != nullptr && !tree->second.out->drain()) return false;
  }
  return true;
}

bool Session::drainNotices() {
  const auto notice = [&](FrameType type, std::optional<U32> token) {
    if (!out_.sufficientBuffer()) return false;
    out_.begin(type);
    if (token) out_.u32(*token);
    out_.end();
    return true;
  };
  if (currentDue_ && !notice(FrameType::current, {})) return false;
  currentDue_ = false;
  if (question_ && !notice(FrameType::question, question_)) return false;
  question_.reset();
  if (answer_ && !notice(FrameType::answer, answer_)) return false;
  answer_.reset();
  return true;
}

// Changes are remembered while something is deferred, and a drain sends them side by side.
void Session::writeTogether(const std::function<void()>& write) {
  deferredIs();
  write();
  drain();
}

void Session::ask(U32 token) {
  question_ = token;
  deferredIs();
}

void Session::refuse(std::string reason) {
  if (!fault_.empty()) return;
  if (out_.sufficientBuffer()) {
    out_.begin(FrameType::refusal);
    out_.text(reason);
    out_.end();
    host_.onOutput();
  }
  fault_ = std::move(reason);
}

bool Session::input(std::span<const U8> bytes) {
  if (!fault_.empty()) return false;
  in_.take(bytes, [&](std::span<const U8> frame) {
    std::string fault;
    try {
      fault = handleFrame(frame);
    } catch (const InternalError& error) {
      fault = error.what();
    }
    if (!fault.empty()) refuse(std::move(fault));
    return fault_.empty();
  });
  if (in_.malformed()) refuse("a frame of an impossible length");
  return fault_.empty();
}

std::string Session::handleFrame(std::span<const U8> frame) {
  Reader in(frame);
  const auto type = static_cast<FrameType>(in.u8());
  if (!greeted_ && type != FrameType::hello && type != FrameType::refusal) {
    return "the first frame is not a hello";
  }
  switch (type) {
    case FrameType::hello: return handleHello(in);
    case FrameType::root: return handleRoot(in);
    case FrameType::rootGone: return handleRootGone(in);
    case FrameType::attributes:
    case FrameType::begin:
    case FrameType::addition:
    case FrameType::removal:
    case FrameType::end: return handleEntityFrame(type, in);
    case FrameType::current:
      if (serving() || !in.complete()) return "a notice that does not belong here";
      host_.onCurrent();
      return {};
    case FrameType::question:
    case FrameType::answer: return handleQuestion(type, in);
    case FrameType::refusal:
      refusal_ = in.text();
      fault_ = "the peer ended the connection: " + refusal_;
      return {};
  }
  return "a frame of an unknown type";
}

std::string Session::handleHello(Reader& in) {
  const U32 peerMagic = in.u32();
  const U16 version = in.u16();
  if (peerMagic != magic || !in.ok()) return "the peer does not send an attribute log";
  if (version != protocolVersion) {
    return "the peer has version " + std::to_string(version) + " of the attribute log, not " +
           std::to_string(protocolVersion);
  }
  in.seconds();  // for readers on another machine: this side has the peer's clock
  const U8 rights = in.u8();
  in.text();
  if (greeted_ || rights > static_cast<U8>(Rights::configure) || !in.complete()) {
    return "a hello that contradicts itself";
  }
  greeted_ = true;
  ownRights_ = static_cast<Rights>(rights);
  if (deferred_) host_.onOutput();
  return {};
}

std::string Session::handleRoot(Reader& in) {
  const U32 number = in.u32();
  const std::string path(in.text());
  const U8 writable = in.u8();
  const std::string type(in.text());
  const Value key = in.argument();
  if (serving() || writable > 1 || !in.complete() || trees_.contains(number) ||
      !paths_.insert(path).second) {
    return "a directory entry that does not belong here";
  }
  Tree& tree = trees_[number];
  tree.path = path;
  const Ptr<EntityBase> entity = host_.rootIs(path, type, key);
  if (!entity) return {};
  if (entity->typeName() != type) return "a directory entry of an unknown type";
  tree.out = std::make_unique<TreeOut>(
      static_cast<TreeOut::Host&>(*this), number, path, entity,
      writable == 1 ? TreeOut::Copy::writable : TreeOut::Copy::readOnly, writable == 1);
  tree.in = std::make_unique<TreeIn>(entity, true, *tree.out);
  return {};
}

std::string Session::handleRootGone(Reader& in) {
  const U32 number = in.u32();
  const auto tree = trees_.find(number);
  if (serving() || !in.complete() || tree == trees_.end()) {
    return "the end of a directory entry that does not exist";
  }
  const std::string path = tree->second.path;
  trees_.erase(tree);
  paths_.erase(path);
  host_.rootDel(path);
  return {};
}

std::string Session::handleQuestion(FrameType type, Reader& in) {
  const U32 token = in.u32();
  if (!in.complete()) return "a question that is too short or too long";
  if (type == FrameType::answer) {
    host_.onAnswer(token);
  } else {
    answer_ = token;
    deferredIs();
  }
  return {};
}

std::string Session::handleEntityFrame(FrameType type, Reader& in) {
  const Ref ref = in.ref();
  if (!in.ok()) return "a frame that names no entity";
  const auto found = trees_.find(ref.root);
  if (found == trees_.end()) {
    return serving() ? "" : "a frame for a directory entry that does not exist";
  }
  if (found->second.in == nullptr) return {};
  TreeIn& tree = *found->second.in;
  switch (type) {
    case FrameType::attributes: return tree.handleAttrDeserialization(ref, in, *this, peerName());
    case FrameType::addition: return tree.handleAddition(ref, in, peerName());
    case FrameType::removal: return tree.handleRemoval(ref, in, peerName());
    default: return tree.handleAttrTransaction(ref, type, in, peerName());
  }
}

}  // namespace Mox::NboAttrLog
