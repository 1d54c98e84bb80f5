// The outgoing half of one connection for one directory entry: the entity and all below it.
//
// It hears every change in the tree. While the stream has room and nothing is left over, a change
// is sent at once; otherwise it is remembered in the FlowOut, and the connection's drain sends it.
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
  // What it needs of its connection.
  class MOX_PUBLIC Host {
   public:
    virtual OutStream& out() = 0;
    // Something is left over, here or in another tree: changes are remembered, not sent.
    virtual bool deferred() const = 0;
    virtual void deferredIs() = 0;
    // Frames were built outside a drain: the socket should be asked to take them.
    virtual void transmit() = 0;

   protected:
    ~Host() = default;
  };
  enum class Copy {
    original,  // the peer is told everything, beginning with the announcement
    writable,  // of the peer's entity; the peer is told what is written here
    readOnly,  // of the peer's entity; writing it is an error
  };

  // Keys of members that came or went are remembered one by one up to this number and twice the
  // size of the collection.
  static constexpr size_t keysAlwaysKept = 1024;

  TreeOut(Host& host, U32 number, std::string path, Ptr<EntityBase> entity, Copy copy,
          bool writable);
  ~TreeOut() override;

  const Ptr<EntityBase>& entity() const { return entity_; }
  const FlowOut& flow() const { return flow_; }
  Copy copy() const { return copy_; }
  bool announced() const { return announced_; }
  // Sends what is left over; false when the stream was full first.
  bool drain();

  // Between these, what changes in that attribute is what the peer sent: it is not sent back.
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
  // Whether a change is to be sent or remembered at all.
  bool concerns(const EntityBase& entity, AttrId id) const;
  Ref refOf(const EntityBase& entity) const;
  static void keepBounded(FlowOut& flow, size_t members);
  // Adds dirty bits to what is remembered of that entity. Its flow; null for a leaf, and where a
  // record to come covers it.
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
