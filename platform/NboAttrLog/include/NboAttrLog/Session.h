// One connection of the attribute log, without its socket: received bytes are passed in, bytes to
// send wait in an OutStream. No thread, no loop: the host calls when bytes were received and when
// the stream has room again.
//
// The serving side owns the entities and sends its directory; the other side has copies. Both send
// hello first. Then the server sends everything, then changes in order. A frame that is malformed,
// too long or not allowed ends the connection with a reason; entities keep their values.
//
//   Session session(host, {.name = "igmpq", .peerName = "uid 0", .rights = Rights::configure},
//                   directory);
//   if (!session.input(bytes)) close(session.fault());
//   session.drain();  // after the socket took something
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <Mox/Entity.h>
#include <MoxBase/Export.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/Directory.h>
#include <NboAttrLog/InStream.h>
#include <NboAttrLog/OutStream.h>
#include <NboAttrLog/TreeIn.h>
#include <NboAttrLog/TreeOut.h>

namespace Mox::NboAttrLog {

// The rights of the peer of a serving session.
enum class Rights : U8 { read = 0, configure = 1 };

class MOX_PUBLIC SessionHost {
 public:
  // Bytes wait in the stream, or a drain would put bytes into it. Called within other calls: the
  // host notes it, or passes the waiting bytes to the socket, and drains later.
  virtual void onOutput() = 0;

  // A copy's entity for a directory entry of the peer; null to ignore the entry.
  virtual Ptr<EntityBase> rootIs(std::string_view path, std::string_view typeName,
                                 const Value& key);
  virtual void rootDel(std::string_view path);
  // Everything that existed when this side connected has been received.
  virtual void onCurrent() {}
  // The peer has acted on everything that was sent before the question.
  virtual void onAnswer(U32 token);
  // Why values that the peer writes together are refused; empty when they are accepted.
  virtual std::string whyRefused(const EntityBase& entity, std::span<const Written> values);

 protected:
  ~SessionHost() = default;
};

class MOX_PUBLIC Session final : private TreeOut::Host,
                                 private TreeIn::Host,
                                 private Directory::Follower {
 public:
  struct Setup {
    std::string name;              // of this side, sent to the peer
    std::string peerName;          // for errors
    Rights rights = Rights::read;  // of the peer, if this side serves
    size_t bufferBytes = OutStream::defaultCapacity;
  };

  // With a directory it serves the entries of that; without one it keeps copies.
  Session(SessionHost& host, Setup setup, Directory* directory = nullptr);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Bytes that were received from the peer. False when the connection is over, see fault().
  bool input(std::span<const U8> bytes);
  // Builds the frames that are due, for as long as the stream has room.
  void drain();
  // Everything that is to be sent is in the stream, or was taken from it.
  bool allSent() const { return !deferred_; }
  OutStream& stream() { return out_; }

  // Sends the values that `write` sets in one entity in one frame, which the peer judges as a
  // whole, unless a walk through a collection or the length of a frame parts them.
  void writeTogether(const std::function<void()>& write);
  // Asks the peer to answer once it has acted on everything sent before; see onAnswer.
  void ask(U32 token);
  // Sends the reason and ends the connection: input() is false from now on.
  void refuse(std::string reason);

  // Why the connection ended, as a sentence for the log; empty while it goes on.
  const std::string& fault() const { return fault_; }
  // The reason that the peer gave for ending it; empty for none.
  const std::string& refusal() const { return refusal_; }
  const std::string& peerName() const { return setup_.peerName; }
  // The peer's hello was received.
  bool greeted() const { return greeted_; }
  // The rights of this side to the peer's entities.
  Rights ownRights() const { return ownRights_; }

 private:
  // Both halves of one directory entry. A copy's entry that is ignored has neither.
  struct Tree {
    std::string path;
    std::unique_ptr<TreeOut> out;
    std::unique_ptr<TreeIn> in;
  };

  OutStream& out() override { return out_; }
  bool deferred() const override { return deferred_; }
  void deferredIs() override;
  void transmit() override { host_.onOutput(); }
  std::string whyRefused(const EntityBase& entity, std::span<const Written> values) override;
  void onEntry(U32 number) override;

  bool serving() const { return directory_ != nullptr; }
  void sendHello();
  void serve(U32 number, const Directory::Entry& entry);
  bool drainGone();
  bool drainTrees();
  bool drainNotices();

  // The fault of a frame, empty for none.
  std::string handleFrame(std::span<const U8> frame);
  std::string handleHello(Reader& in);
  std::string handleRoot(Reader& in);
  std::string handleRootGone(Reader& in);
  std::string handleQuestion(FrameType type, Reader& in);
  std::string handleEntityFrame(FrameType type, Reader& in);

  SessionHost& host_;
  const Setup setup_;
  Directory* const directory_;
  OutStream out_;
  InStream in_;
  std::map<U32, Tree> trees_;
  std::set<std::string> paths_;  // of the entries that the peer has announced
  std::vector<U32> gone_;        // removed entries whose end has not been sent
  std::optional<U32> question_;  // to be sent; a later one replaces those before it
  std::optional<U32> answer_;    // to be sent
  U32 nextTree_ = 0;             // the tree at which the next round goes on
  bool greeted_ = false;
  bool deferred_ = false;
  bool currentDue_ = false;  // the notice that the peer has everything has not been sent
  Rights ownRights_ = Rights::read;
  std::string fault_;
  std::string refusal_;
};

}  // namespace Mox::NboAttrLog
