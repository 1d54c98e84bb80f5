// The outgoing half of one connection for one directory entry: the entity and all below it.
//
// It is notified of every change in the tree. While the stream has room and nothing older waits, a
// change is sent at once; otherwise it is remembered in the FlowOut, and the connection's drain
// sends it.
#pragma once

#include <optional>

#include <Mox/Entity.h>
#include <Mox/Notifiee.h>
#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>
#include <NboAttrLog/EntitySa.h>
#include <NboAttrLog/FlowOut.h>
#include <NboAttrLog/OutStream.h>

namespace Mox::NboAttrLog {

class MOX_PUBLIC TreeOut final : private TreeNotifiee {
 public:
  // The connection.
  class MOX_PUBLIC Host {
   public:
    virtual OutStream& out() = 0;
    // Something remembered waits, here or in another tree: changes are remembered, not sent.
    virtual bool deferred() const = 0;
    virtual void deferredIs() = 0;
    // Frames were built outside a drain: the socket should be asked to take them.
    virtual void transmit() = 0;

   protected:
    ~Host() = default;
  };
  enum class Copy {
    original,  // the peer is sent everything, beginning with the announcement
    writable,  // of the peer's entity; the peer is sent the values that are written here
    readOnly,  // of the peer's entity; writing it is an error
  };

  // Keys of members that came or went are remembered one by one up to this number plus twice the
  // size of the collection.
  static constexpr size_t keysAlwaysKept = 1024;

  TreeOut(Host& host, U32 number, std::string path, Ptr<EntityBase> entity, Copy copy,
          bool writable);
  ~TreeOut() override;

  const Ptr<EntityBase>& entity() const { return entity_; }
  const FlowOut& flow() const { return flow_; }
  Copy copy() const { return copy_; }
  bool announced() const { return announced_; }
  // Sends what is remembered; false when the stream was full first.
  bool drain();

  // While it exists, changes of that attribute come from the peer: they are not sent back.
  class Receiving {
   public:
    Receiving(TreeOut& tree, const EntityBase& entity, AttrId id);
    ~Receiving();
    Receiving(const Receiving&) = delete;
    Receiving& operator=(const Receiving&) = delete;

   private:
    TreeOut& tree_;
    const EntityBase* const outerEntity_;
    const AttrId outerId_;
  };

 private:
  class Delivering;

  void onAttr(const EntityBase& entity, AttrId id) override;
  void onMember(const EntityBase& entity, AttrId id, U32 key) override;
  void onCollection(const EntityBase& entity, AttrId id) override;
  // Whether a change is to be sent or remembered.
  bool concerns(const EntityBase& entity, AttrId id) const;
  Ref refOf(const EntityBase& entity) const;
  static void keepBounded(FlowOut& flow, size_t members);
  // Adds dirty bits to those that are remembered of the entity. Returns its flow; null for a leaf,
  // and where a record that has not been sent covers the entity.
  FlowOut* remembered(const Ref& ref, U64 bits);

  Host& host_;
  const U32 number_;
  const std::string path_;
  const Ptr<EntityBase> entity_;
  const Copy copy_;
  const bool writable_;
  bool announced_ = false;
  bool delivering_ = false;
  FlowOut flow_;
  const EntityBase* receivingEntity_ = nullptr;
  AttrId receivingId_ = 0;
};

}  // namespace Mox::NboAttrLog
