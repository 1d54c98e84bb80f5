#include <Client/KeptState.h>

#include <stdexcept>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <Local/LocalPeer.h>
#include <Local/LocalSocket.h>
#include <Local/MachineIdentity.h>
#include <Mox/ActivityClock.h>
#include <NboAttrLog/Frame.h>

namespace Agent {

namespace {

using Mox::NboAttrLog::protocolVersion;

constexpr std::chrono::milliseconds connectPause(20);

double secondsOf(std::chrono::nanoseconds duration) {
  return std::chrono::duration<double>(duration).count();
}

class StoreReading {
 public:
  StoreReading(EventLoop& loop, const std::string& path)
      : loop_(loop),
        copy_(loop.io(), path,
              {.onCurrent = [this] { isCurrent_ = true; },
               .onInput = [this] { handleInput(); },
               .onAnswer = [this](Mox::U32) { isAnswered_ = true; },
               .onEnded = [this](AttrLogCopy::End end,
                                 const std::string& why) { handleEnd(end, why); }}) {}

  KeptState read(const StorePatience& patience) {
    std::chrono::nanoseconds left = patience.begin;
    Descriptor socket = connected(left);
    if (!isPeerTrusted(socket.fd())) {
      fail("the store at {} runs as {}: it must run as root or as the user of this agent",
           copy_.path(), peerUser(socket.fd()));
    }
    copy_.connect(std::move(socket));
    waitUntil(hasBegun_, left);
    waitUntil(isComplete_, patience.complete);
    return {.interfaces = copy_.interfaces(), .lostTime = copy_.storeState()->lostTime()};
  }

 private:
  template <class... Args>
  [[noreturn]] static void fail(fmt::format_string<Args...> why, Args&&... args) {
    throw std::runtime_error(fmt::format(why, std::forward<Args>(args)...));
  }

  // A store that starts at the same time as this agent may serve a moment later: both were killed.
  Descriptor connected(std::chrono::nanoseconds& left) {
    const bool isNever = false;
    for (; left > connectPause; left -= connectPause) {
      try {
        return connectToStore(copy_.path());
      } catch (const ConnectError&) {
        loop_.runUntil(isNever, connectPause);
        if (loop_.isStopped()) failLate();
      }
    }
    return connectToStore(copy_.path());
  }

  [[noreturn]] void failLate() const {
    if (loop_.isStopped()) fail("a signal came first");
    const char* what = "did not begin";
    if (hasBegun_) {
      what = isCurrent_ ? "has an agent that has not ended" : "did not send all that it has";
    }
    fail("the store at {} {} within {} s", copy_.path(), what, secondsOf(patience_));
  }

  void waitUntil(const bool& done, std::chrono::nanoseconds longest) {
    patience_ = longest;
    deadline_ = Mox::now() + secondsOf(longest);
    if (!loop_.runUntil(done, longest)) failLate();
  }

  // The loop handles what has arrived before it looks at the time: a store that goes on sending
  // would keep it from that. The state of the store is the first entry, and one frame has all of
  // it.
  void handleInput() {
    if (Mox::now() > deadline_) failLate();
    if (!hasBegun_) begin();
    if (!hasBegun_ || !isCurrent_) return;
    const bool isLost = copy_.storeState()->lostTime() != 0.0;
    if (!isLost && !copy_.interfaces().empty()) {
      isAsked_ = isAnswered_ = false;  // another agent has come
      return;
    }
    // What the dead agent sent last may still wait behind the news of its end.
    if (isLost && !isAsked_) {
      isAsked_ = true;
      copy_.ask(1);
    }
    isComplete_ = !isLost || isAnswered_;
  }

  void begin() {
    const Mox::Ptr<StoreState>& state = copy_.storeState();
    if (!state || state->formatVersion() == 0) {
      if (isCurrent_) fail("what serves {} is no store", copy_.path());
      return;
    }
    if (state->formatVersion() != protocolVersion) {
      fail("the store at {} keeps the format {} of the attribute log, not {}", copy_.path(),
           state->formatVersion(), protocolVersion);
    }
    if (state->machineId() != machineId()) {
      fail("the store at {} keeps the state of another machine", copy_.path());
    }
    if (state->bootId() != bootId()) {
      fail("the store at {} keeps the state of another boot of this machine", copy_.path());
    }
    hasBegun_ = true;
  }

  void handleEnd(AttrLogCopy::End end, const std::string& why) const {
    switch (end) {
      case AttrLogCopy::End::lost: fail("the store at {} has gone", copy_.path());
      case AttrLogCopy::End::refused: fail("the store at {} refuses: {}", copy_.path(), why);
      case AttrLogCopy::End::protocolError: throw std::runtime_error(why);
    }
  }

  EventLoop& loop_;
  AttrLogCopy copy_;
  std::chrono::nanoseconds patience_{};  // of what it waits for now
  Mox::Seconds deadline_ = 0.0;
  bool hasBegun_ = false;
  bool isCurrent_ = false;
  bool isAsked_ = false;
  bool isAnswered_ = false;
  bool isComplete_ = false;
};

}  // namespace

KeptState keptState(EventLoop& loop, const std::string& path, StorePatience patience) {
  KeptState kept = StoreReading(loop, path).read(patience);
  loop.poll();  // the connection ends with the last of its handlers
  return kept;
}

}  // namespace Agent
