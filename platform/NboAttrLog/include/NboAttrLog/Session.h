// One connection of the attribute log, without its socket: what comes in is taken as bytes, what
// goes out waits in an OutStream. No thread, no loop: the host calls when bytes came and when the
// stream has room again.
//
// The serving side owns the entities and tells its directory; the other side has copies. Both say
// hello first. Then the server sends everything, then changes in order. A frame that is malformed,
// too long or not allowed ends the connection with a reason; entities keep what they have.
//
//   Session session(host, {.name = "igmpq", .peerName = "uid 0", .rights = Rights::configure},
//                   directory);
//   if (!session.input(bytes)) close(session.fault());
//   session.drain();  // after the socket took something
#pragma once

#include <map>
#include <memory>
#include <optional>
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

// What the peer of a serving session may do.
enum class Rights : U8 { read = 0, configure = 1 };

class MOX_PUBLIC SessionHost {
 public:
  // Bytes wait in the stream, or more of them would if the session were asked to drain. Called
  // within other calls: the host takes note, or gives the socket what waits, and drains later.
  virtual void onOutput() = 0;

  // A copy's entity for a directory entry of the peer; null for one that is of no interest.
  virtual Ptr<EntityBase> rootIs(std::string_view path, std::string_view typeName,
                                 const Value& key);
  virtual void rootDel(std::string_view path);
  // All that was there when this side connected has come.
  virtual void onCurrent() {}
  // All that was sent before the question has been acted on.
  virtual void onAnswer(U32 token);
  // Why values that the peer writes together are refused; empty when they are taken.
  virtual std::string whyRefused(const EntityBase& entity, std::span<const Written> values);

 protected:
  ~SessionHost() = default;
};

class MOX_PUBLIC Session final : private TreeOut::Host,
                                 private TreeIn::Judge,
                                 private Directory::Follower {
 public:
  struct Setup {
    std::string name;              // of this side, told to the peer
    std::string peerName;          // as errors name the peer
    Rights rights = Rights::read;  // of the peer, where this side serves
    size_t bufferBytes = OutStream::defaultCapacity;
  };

  // With a directory it serves that; without one it keeps copies.
  Session(SessionHost& host, Setup setup, Directory* directory = nullptr);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // What came from the peer. False when the connection is over, see fault().
  bool input(std::span<const U8> bytes);
  // Builds what is left over, for as long as the stream has room.
  void drain();
  // Nothing is left over that is not in the stream.
  bool allSent() const { return !deferred_; }
  OutStream& stream() { return out_; }

  // Asks the peer to answer once it has acted on everything sent before; see onAnswer.
  void ask(U32 token);
  // Tells the peer why, and ends the connection: input() is false from now on.
  void refuse(std::string reason);

  // Why the connection ended, as a sentence for the log; empty while it goes on.
  const std::string& fault() const { return fault_; }
  // The reason that the peer gave for ending it; empty for none.
  const std::string& refusal() const { return refusal_; }
  const std::string& peerName() const { return setup_.peerName; }
  // The peer has said hello.
  bool greeted() const { return greeted_; }
  // What this side may do with the peer's entities.
  Rights ownRights() const { return ownRights_; }
  // The peer's activity clock at its hello, less this side's when it came.
  Seconds clockDifference() const { return clockDifference_; }

 private:
  // Both halves of one directory entry. A copy that is of no interest has neither.
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
  void sayHello();
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
  std::vector<U32> gone_;        // entries whose end the peer has yet to be told
  std::optional<U32> question_;  // to be asked; a later one stands for those before it
  std::optional<U32> answer_;    // to be given
  U32 nextTree_ = 0;             // where the round through them goes on
  bool greeted_ = false;
  bool deferred_ = false;
  bool currentDue_ = false;  // the peer has yet to be told that it has everything
  Rights ownRights_ = Rights::read;
  Seconds clockDifference_ = 0.0;
  std::string fault_;
  std::string refusal_;
};

}  // namespace Mox::NboAttrLog
