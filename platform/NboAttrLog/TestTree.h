// The outgoing half of a connection for one entity, and the copy that its bytes make.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {

// Every value of an entity and of those below it.
inline void describe(const EntityBase& entity, std::string& out) {
  for (const AttrInfo& attr : entity.type().attrs) {
    if (attr.text == nullptr) continue;
    out += attr.text(entity);
    out += ' ';
  }
  for (const CollectionInfo& collection : entity.type().collections) {
    std::vector<U32> keys = collection.keys(entity);
    std::ranges::sort(keys);
    for (const U32 key : keys) {
      out += '(';
      describe(*collection.find(entity, key), out);
      out += ')';
    }
  }
}

inline std::string described(const EntityBase& entity) {
  std::string out;
  describe(entity, out);
  return out;
}

class TestTree : private TreeOut::Host, private SessionHost {
 public:
  TestTree(Ptr<EntityBase> original, Ptr<EntityBase> copy)
      : original_(std::move(original)), copy_(std::move(copy)) {
    EXPECT_TRUE(peer_.input(framed(helloFrame)));
  }
  virtual ~TestTree() = default;

  const EntityBase& original() const { return *original_; }
  const FlowOut& flow() const { return tree_.flow(); }
  OutStream& stream() { return out_; }
  bool allSent() const { return !deferred_; }

  void drain() { deferred_ = !tree_.drain(); }
  // The peer takes so many bytes.
  void take(size_t most) {
    const auto waiting = out_.pending();
    const size_t bytes = std::min(most, waiting.size());
    const size_t filling = std::min(bytes, filling_);
    ASSERT_TRUE(peer_.input(waiting.subspan(filling, bytes - filling))) << peer_.fault();
    filling_ -= filling;
    out_.taken(bytes);
  }
  // Puts so many bytes into the empty stream that are not for the peer; three at least, or none.
  void fill(size_t bytes) {
    filling_ = bytes;
    while (bytes != 0) {
      const size_t frame = bytes > longestFrame ? longestFrame - frameHead : bytes;
      out_.begin(FrameType::refusal);
      for (size_t byte = frameHead; byte < frame; ++byte) out_.u8(0);
      out_.end();
      bytes -= frame;
    }
  }
  void expectCopyEqual() const { EXPECT_EQ(described(*copy_), described(*original_)); }

 private:
  OutStream& out() override { return out_; }
  bool deferred() const override { return deferred_; }
  void deferredIs() override { deferred_ = true; }
  void transmit() override {}

  void onOutput() override {}
  Ptr<EntityBase> rootIs(std::string_view, std::string_view, const Value&) override {
    return copy_;
  }

  const Ptr<EntityBase> original_;
  const Ptr<EntityBase> copy_;
  OutStream out_{OutStream::leastCapacity};
  size_t filling_ = 0;
  bool deferred_ = false;
  TreeOut tree_{*this, 1, "root", original_, TreeOut::Copy::original, false};
  Session peer_{*this, {.name = "copy", .peerName = "agent"}};
};

}  // namespace Mox::NboAttrLog
