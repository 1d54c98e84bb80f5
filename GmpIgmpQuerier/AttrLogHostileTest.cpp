// Malformed bytes: they may end the connection that they were received on, and nothing else.
#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AttrLogTestSupport.h"

namespace Gmp::Igmp {
namespace {

using Mox::U8;
using Bytes = std::vector<U8>;

class HostileStream {
 public:
  explicit HostileStream(unsigned seed) : random_(seed) {}

  // A good stream with bytes changed, left out or repeated.
  Bytes spoiled(Bytes stream) {
    for (unsigned times = 1 + below(6); times > 0 && stream.size() > 8; --times) {
      const auto at = stream.begin() + below(stream.size());
      const auto end = at + std::min<std::ptrdiff_t>(stream.end() - at, below(12));
      switch (below(4)) {
        case 0: *at = static_cast<U8>(below(256)); break;
        case 1: *at = static_cast<U8>(*at ^ 1u << below(8)); break;
        case 2: stream.erase(at, end); break;
        case 3: {
          const Bytes again(at, end);
          stream.insert(at, again.begin(), again.end());
          break;
        }
      }
    }
    return stream;
  }
  // In parts, until the session ends.
  void feed(Session& session, const Bytes& bytes) {
    for (size_t at = 0; at < bytes.size();) {
      const size_t part = std::min(bytes.size() - at, size_t{1} + below(300));
      if (!session.input(std::span(bytes).subspan(at, part))) break;
      at += part;
      session.drain();
      session.stream().taken(session.stream().pending().size());
    }
  }
  unsigned below(size_t limit) { return static_cast<unsigned>(random_() % limit); }

 private:
  std::mt19937 random_;
};

// Everything that a session would send now.
Bytes sentBy(Session& session) {
  Bytes all;
  for (session.drain(); !session.stream().pending().empty(); session.drain()) {
    const auto waiting = session.stream().pending();
    all.insert(all.end(), waiting.begin(), waiting.end());
    session.stream().taken(waiting.size());
  }
  return all;
}

class AttrLogHostileTest : public testing::Test {
 protected:
  AttrLogHostileTest() {
    directory_.entryIs("status/vlan10", status_, Access::configurable);
    for (U32 g = 1; g <= 5; ++g) {
      const auto group = status_->groupIs(IpAddr(0xef000000u + g));
      for (U32 s = 0; s < g; ++s) group->sourceIs(IpAddr(0x0a000001u + s));
    }
  }
  // A healthy connection afterwards: the copy is right.
  void expectToConverge(CopyHost& copies) {
    AttrLogLine line(directory_, copies);
    line.settle();
    ASSERT_EQ(line.server().fault() + line.copy().fault(), "");
    ASSERT_EQ(described(*copies.copy<QuerierStatus>("status/vlan10")), described(*status_));
  }
  // The stream of a peer that may write everything and writes many attributes.
  Bytes writtenStream() {
    CopyHost copies;
    Session server(host_, {.name = "agent", .peerName = "copy", .rights = Rights::configure},
                   &directory_);
    Session copy(copies, {.name = "copy", .peerName = "agent"});
    Bytes stream = sentBy(copy);
    EXPECT_TRUE(server.input(stream));
    EXPECT_TRUE(copy.input(sentBy(server)));
    const auto status = copies.copy<QuerierStatus>("status/vlan10");
    status->v1QueriesSentInc(1);
    status->stateIs(QuerierStatus::querierStateQuerier);
    status->groupIs(IpAddr(0xef000009u))->sourceIs(IpAddr(0x0a000001u))->expiredIs(true);
    status->groupDel(IpAddr(0xef000002u));
    status->groupNotify();
    copy.ask(1);
    const Bytes written = sentBy(copy);
    stream.insert(stream.end(), written.begin(), written.end());
    return stream;
  }

  static constexpr unsigned runs = 2000;
  ServeHost host_;
  Directory directory_;
  Ptr<QuerierStatus> status_ = querierStatusFactory();
};

TEST_F(AttrLogHostileTest, spoiledStreamOfAServerLeavesACopyThatAHealthyOneMends) {
  Session server(host_, {.name = "agent", .peerName = "copy"}, &directory_);
  CopyHost nobody;
  Session hello(nobody, {.name = "copy", .peerName = "agent"});
  Bytes stream = sentBy(server);
  ASSERT_TRUE(server.input(sentBy(hello)));
  const Bytes rest = sentBy(server);
  stream.insert(stream.end(), rest.begin(), rest.end());
  unsigned ended = 0;
  for (unsigned seed = 1; seed <= runs; ++seed) {
    SCOPED_TRACE(seed);
    HostileStream hostile(seed);
    CopyHost copies;
    {
      Session copy(copies, {.name = "copy", .peerName = "agent"});
      hostile.feed(copy, hostile.spoiled(stream));
      ended += copy.fault().empty() ? 0 : 1;
    }
    expectToConverge(copies);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(ended, runs / 2);
}

TEST_F(AttrLogHostileTest, spoiledStreamOfAPeerThatMayWriteLeavesOtherPeersAsTheyWere) {
  const Bytes stream = writtenStream();
  CopyHost others;
  AttrLogLine line(directory_, others);
  line.settle();
  unsigned ended = 0;
  for (unsigned seed = 1; seed <= runs; ++seed) {
    SCOPED_TRACE(seed);
    HostileStream hostile(seed);
    {
      Session server(host_, {.name = "agent", .peerName = "copy", .rights = Rights::configure},
                     &directory_);
      hostile.feed(server, hostile.spoiled(stream));
      ended += server.fault().empty() ? 0 : 1;
    }
    line.settle();
    ASSERT_EQ(line.server().fault() + line.copy().fault(), "");
    ASSERT_EQ(described(*others.copy<QuerierStatus>("status/vlan10")), described(*status_));
    if (seed % 100 == 0) {
      CopyHost fresh;
      expectToConverge(fresh);
    }
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(ended, runs / 2);
}

TEST_F(AttrLogHostileTest, spoiledStreamOfAPeerWithoutRightsChangesNothing) {
  const Bytes stream = writtenStream();
  const std::string before = described(*status_);
  for (unsigned seed = 1; seed <= runs; ++seed) {
    SCOPED_TRACE(seed);
    HostileStream hostile(seed);
    Session server(host_, {.name = "agent", .peerName = "copy"}, &directory_);
    hostile.feed(server, hostile.spoiled(stream));
    ASSERT_EQ(described(*status_), before);
  }
}

}  // namespace
}  // namespace Gmp::Igmp
