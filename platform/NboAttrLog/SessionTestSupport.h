// A session under test, and functions that write and read frames byte by byte in place of a peer.
//
// Frames are written as hexadecimal digits, type first, without the length: "0a 00000007". Blanks
// are for the eye.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <Mox/ActivityClock.h>
#include <NboAttrLog/Session.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestEntities.h"

namespace Mox::NboAttrLog {

using Frames = std::vector<std::string>;

inline std::vector<U8> bytesOf(std::string_view hex) {
  std::string digits(hex);
  std::erase(digits, ' ');
  std::vector<U8> bytes;
  for (size_t at = 0; at + 1 < digits.size(); at += 2) {
    bytes.push_back(static_cast<U8>(std::stoul(digits.substr(at, 2), nullptr, 16)));
  }
  return bytes;
}

inline std::string hexOf(std::span<const U8> bytes) {
  static constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  for (const U8 byte : bytes) {
    hex += digits[byte >> 4];
    hex += digits[byte & 15];
  }
  return hex;
}

// The same frames without blanks, to be compared with received ones.
inline Frames framesOf(const Frames& written) {
  Frames plain;
  for (const std::string& frame : written) plain.push_back(hexOf(bytesOf(frame)));
  return plain;
}

// The digits of a text as a frame holds it: its length, then its bytes.
inline std::string textHex(std::string_view text) {
  const U8 length[] = {static_cast<U8>(text.size() >> 8), static_cast<U8>(text.size())};
  const std::vector<U8> bytes(text.begin(), text.end());
  return hexOf(length) + hexOf(bytes);
}

// A frame as it is sent: with its length in front.
inline std::vector<U8> framed(std::string_view hex) {
  std::vector<U8> bytes = bytesOf(hex);
  const size_t length = bytes.size();
  bytes.insert(bytes.begin(), {static_cast<U8>(length >> 8), static_cast<U8>(length)});
  return bytes;
}

// Takes bytes that wait in a stream, up to a number, and puts frames together.
class FrameTaker {
 public:
  static constexpr size_t everything = ~size_t{0};

  // The frames that are complete now.
  Frames take(OutStream& stream, size_t most = everything) {
    const auto waiting = stream.pending();
    const size_t bytes = std::min(most, waiting.size());
    Frames complete;
    const bool good = in_.take(waiting.first(bytes), [&](std::span<const U8> frame) {
      complete.push_back(hexOf(frame));
      return true;
    });
    EXPECT_TRUE(good) << "a frame of an impossible length was sent";
    stream.taken(bytes);
    return complete;
  }

 private:
  InStream in_;
};

class TestHost final : public SessionHost {
 public:
  void onOutput() override {
    ++outputs_;
    if (then_) then_();
  }
  Ptr<EntityBase> rootIs(std::string_view path, std::string_view typeName,
                         const Value& key) override {
    events_ += "root(" + std::string(path) + ") ";
    const std::string* name = std::get_if<std::string>(&key);
    if (ignores_ || name == nullptr) return {};
    if (keeps_) return keeps_;
    auto& copy = copies_[std::string(path)];
    if (copy == nullptr && typeName == Root::entityTypeName) copy = makePtr<Root>(Name(*name));
    return copy;
  }
  void rootDel(std::string_view path) override {
    events_ += "rootDel(" + std::string(path) + ") ";
    copies_.erase(std::string(path));
  }
  void onCurrent() override { events_ += "current "; }
  void onAnswer(U32 token) override { events_ += "answer(" + std::to_string(token) + ") "; }
  std::string whyRefused(const EntityBase&, std::span<const Written> values) override {
    for (const Written& written : values) {
      if (written.attr->name == refused_) return refused_ + " is not for you";
    }
    return {};
  }

  // The calls since the last call of this.
  std::string events() { return std::exchange(events_, {}); }
  Ptr<Root> copy(const std::string& path) const {
    const auto found = copies_.find(path);
    return found == copies_.end() ? nullptr : found->second;
  }

  int outputs_ = 0;
  bool ignores_ = false;        // every directory entry
  Ptr<Root> keeps_;             // the copy for every entry, if it is set
  std::string refused_;         // the attribute that peers may not write
  std::function<void()> then_;  // called at each output

 private:
  std::map<std::string, Ptr<Root>> copies_;
  std::string events_;
};

// The frames that tests send and expect most.
inline const std::string helloFrame =
    "01 4d6f784c 0001 408f400000000000 00" + textHex("peer");  // the clock is at 1000
inline const std::string rootFrame =
    "02 00000001" + textHex("root/a") + "00" + textHex("Test::Root") + "05" + textHex("a");
inline const std::string writableRootFrame =
    "02 00000001" + textHex("root/a") + "01" + textHex("Test::Root") + "05" + textHex("a");
inline const std::string currentFrame = "09";
// The initial values of the attributes of a root that follow its nodes.
inline const std::string restOfRoot =
    "04 00000001 00 0105 0000000000000000 0107 0000000000000000 0108 0000 0109 00000000"
    "010a 00000000";

// A serving session whose peer is the test and has sent hello.
class ServingTest : public testing::Test {
 protected:
  ServingTest() { virtualTimeIs(1000.0); }
  ~ServingTest() override { realTimeIs(); }

  void serve(Rights rights = Rights::read, size_t bufferBytes = OutStream::defaultCapacity) {
    session_ = std::make_unique<Session>(
        host_,
        Session::Setup{
            .name = "agent", .peerName = "uid 7", .rights = rights, .bufferBytes = bufferBytes},
        &directory_);
  }
  // Serves root/a; the peer takes everything.
  void serveRoot(Access access = Access::readOnly, Rights rights = Rights::read) {
    directory_.entryIs("root/a", root_, access);
    serve(rights);
    ASSERT_TRUE(send(helloFrame));
    take();
    ASSERT_TRUE(session_->allSent());
  }
  // The same through a stream of the least capacity.
  void serveSmall() {
    directory_.entryIs("root/a", root_, Access::readOnly);
    serve(Rights::read, OutStream::leastCapacity);
    ASSERT_TRUE(send(helloFrame));
    take();
  }
  bool send(std::string_view hex) { return session_->input(framed(hex)); }
  // Drains and takes until everything is sent.
  Frames take() {
    Frames all;
    for (session_->drain(); !session_->stream().pending().empty(); session_->drain()) {
      for (std::string& frame : taker_.take(session_->stream())) all.push_back(std::move(frame));
    }
    return all;
  }
  // One drain; its frames.
  Frames drained() {
    session_->drain();
    return takeWithoutDraining();
  }
  // Only the frames that are in the stream already.
  Frames takeWithoutDraining() { return taker_.take(session_->stream()); }

  // The keys of the nodes that these frames announce.
  static std::vector<U32> announced(const Frames& frames) {
    std::vector<U32> keys;
    for (const std::string& frame : frames) {
      if (frame.starts_with("060000000101")) {
        keys.push_back(static_cast<U32>(std::stoul(frame.substr(12, 8), nullptr, 16)));
      }
    }
    return keys;
  }

  // Fills the stream with changes. Later changes are remembered.
  void stall() {
    for (bool enabled = !root_->enabled(); session_->stream().sufficientBuffer();
         enabled = !enabled) {
      root_->enabledIs(enabled);
    }
  }
  // The peer takes the frames in the stream; remembered changes are not sent.
  void unstall() { takeWithoutDraining(); }

  TestHost host_;
  Directory directory_;
  Ptr<Root> root_ = makePtr<Root>("a");
  std::unique_ptr<Session> session_;
  FrameTaker taker_;
};

}  // namespace Mox::NboAttrLog
