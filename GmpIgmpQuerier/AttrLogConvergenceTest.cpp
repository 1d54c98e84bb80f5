// Random changes at both ends of connections that stall, resume and break: at the end every copy
// equals the original.
#include <cstdlib>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AttrLogTestSupport.h"

namespace Gmp::Igmp {
namespace {

// The first line in which two descriptions differ; empty when they are equal.
std::string differenceOf(const std::string& original, const std::string& copy) {
  std::istringstream originals(original);
  std::istringstream copies(copy);
  std::string wanted;
  std::string found;
  do {
    wanted.clear();
    found.clear();
    std::getline(originals, wanted);
    std::getline(copies, found);
  } while (wanted == found && (originals || copies));
  if (wanted == found) return {};
  std::string difference = "wanted: ";
  difference.append(wanted).append(", found: ").append(found);
  return difference;
}

// One random history. It uses few addresses, so that a member is often added, removed and added
// again before any of these changes is sent to a copy.
//
// Each attribute of the configuration has one writer for the whole history: this side, or one of
// the peers once its copies are complete. If two sides wrote an attribute at the same time, each
// would end with the value of the other.
class History {
 public:
  explicit History(unsigned seed) : random_(seed), big_(seed % 100 == 0), peers_(1 + below(3)) {
    directory_.entryIs("config/vlan10", config_, Access::configurable);
    directory_.entryIs("status/vlan10", status_, Access::readOnly);
    for (Peer& peer : peers_) {
      peer.rights = below(3) == 0 ? Rights::read : Rights::configure;
    }
    for (const Mox::AttrInfo& attr : config_->type().attrs) {
      if (attr.set != nullptr) writers_.push_back({&attr, below(peers_.size() + 1)});
    }
  }

  void run() {
    const unsigned steps = below(120);
    for (unsigned step = 0; step < steps; ++step) {
      change();
      if (below(3) == 0) carry(peers_[below(peers_.size())]);
    }
    for (Peer& peer : peers_) {
      if (!peer.line) connect(peer);
    }
    while (carryEverything() != 0) {
    }
  }
  std::string difference() const {
    std::string differences;
    const std::string original = described(*config_) + described(*status_);
    for (const Peer& peer : peers_) {
      differences +=
          differenceOf(original, described(*peer.copies.copy<QuerierConfig>("config/vlan10")) +
                                     described(*peer.copies.copy<QuerierStatus>("status/vlan10")));
    }
    return differences;
  }
  std::string faults() {
    std::string all;
    for (Peer& peer : peers_) all += peer.line->server().fault() + peer.line->copy().fault();
    return all;
  }
  unsigned peerWrites() const { return peerWrites_; }
  unsigned stalls() const { return stalls_; }

 private:
  struct Peer {
    CopyHost copies;  // outlives its lines
    Rights rights = Rights::read;
    std::optional<AttrLogLine> line;
  };
  struct Writer {
    const Mox::AttrInfo* attr;
    size_t who;  // the index of a peer; one past the last peer for this side
  };

  unsigned below(size_t limit) { return static_cast<unsigned>(random_() % limit); }
  IpAddr group() { return IpAddr(0xe8000000u + below(big_ && below(4) == 0 ? 3000 : 6)); }
  IpAddr source() { return IpAddr(0x0a000000u + below(4)); }

  void change() {
    switch (below(8)) {
      case 0: configure(); break;
      case 1: status_->v1QueriesSentInc(1); break;
      case 2: status_->groupDel(group()); break;
      case 3: status_->generalQueryExpiryTimeIs(below(1000)); break;
      case 4: status_->groupIs(group())->sourceDel(source()); break;
      case 5: status_->groupIs(group())->sourceIs(source())->expiryTimeIs(below(1000)); break;
      case 6: status_->groupIs(group())->lastReporterIs(source()); break;
      case 7: burst(); break;
    }
  }

  Mox::Value valueFor(const Mox::AttrInfo& attr) {
    switch (attr.value) {
      case Mox::ValueKind::flag: return below(2) == 0;
      case Mox::ValueKind::seconds: return double{below(100) * 0.5};
      default: return Mox::U64{below(4)};  // a version as well
    }
  }
  void configure() {
    const Writer& writer = writers_[below(writers_.size())];
    if (writer.who == peers_.size()) return writer.attr->set(*config_, valueFor(*writer.attr));
    Peer& peer = peers_[writer.who];
    if (!peer.line || !peer.copies.current() || peer.rights != Rights::configure) return;
    ++peerWrites_;
    writer.attr->set(*peer.copies.copy<QuerierConfig>("config/vlan10"), valueFor(*writer.attr));
  }

  void burst() {
    switch (below(big_ ? 5 : 4)) {
      case 0: status_->groupDelAll(); break;
      case 1: status_->groupNotify(); break;
      case 2: status_->groupNotify(group()); break;
      case 3:
        for (unsigned s = 0; s < 40; ++s) {
          status_->groupIs(group())->sourceIs(IpAddr(0x0b000000u + below(60)))->expiredIs(true);
        }
        break;
      case 4:  // more changes than are remembered by their keys
        for (unsigned g = 0; g < 3000; ++g) {
          const IpAddr addr(0xe8000000u + g);
          below(8) == 0 ? void(status_->groupIs(addr)->sourceIs(source()))
                        : void(status_->groupDel(addr));
        }
        break;
    }
  }

  void connect(Peer& peer) {
    peer.copies.currentDel();
    peer.line.emplace(directory_, peer.copies, peer.rights,
                      Mox::NboAttrLog::OutStream::leastCapacity + below(3000));
  }
  void carry(Peer& peer) {
    if (!peer.line) return connect(peer);
    if (below(40) == 0) return peer.line.reset();
    peer.line->carry(below(5) == 0 ? AttrLogLine::everything : below(1500));
    if (!peer.line->server().allSent()) ++stalls_;
  }
  size_t carryEverything() {
    size_t carried = 0;
    for (Peer& peer : peers_) carried += peer.line->carry(AttrLogLine::everything);
    return carried;
  }

  std::mt19937 random_;
  const bool big_;
  const Ptr<QuerierConfig> config_ = querierConfigFactory("vlan10");
  const Ptr<QuerierStatus> status_ = querierStatusFactory();
  Directory directory_;
  std::vector<Peer> peers_;
  std::vector<Writer> writers_;
  unsigned peerWrites_ = 0;
  unsigned stalls_ = 0;
};

TEST(AttrLogConvergenceTest, copiesEqualTheOriginalAfterAnyHistory) {
  const char* wanted = std::getenv("ATTR_LOG_SEED");
  const unsigned first = wanted == nullptr ? 1 : static_cast<unsigned>(std::atoi(wanted));
  const char* fewer = std::getenv("QUERIER_PROPERTY_RUNS");
  const unsigned all = fewer == nullptr ? 10000 : static_cast<unsigned>(std::atoi(fewer));
  const unsigned runs = wanted == nullptr ? all : 1;
  unsigned peerWrites = 0;
  unsigned stalls = 0;
  for (unsigned seed = first; seed < first + runs; ++seed) {
    History history(seed);
    history.run();
    ASSERT_EQ(history.faults(), "") << "ATTR_LOG_SEED=" << seed;
    ASSERT_EQ(history.difference(), "") << "ATTR_LOG_SEED=" << seed;
    peerWrites += history.peerWrites();
    stalls += history.stalls();
  }
  if (wanted != nullptr) return;
  // The histories contained the cases that this test is for.
  EXPECT_GT(peerWrites, runs / 10);
  EXPECT_GT(stalls, runs);
}

}  // namespace
}  // namespace Gmp::Igmp
