// Whatever changes, and wherever the line between them stalls, resumes or breaks: at the end the
// copy equals the original.
#include <cstdlib>
#include <optional>
#include <random>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "AttrLogTestSupport.h"

namespace Gmp::Igmp {
namespace {

// One random history. Few addresses, so that members come, go and come again before the copy hears.
class History {
 public:
  explicit History(unsigned seed) : random_(seed) {
    directory_.entryIs("config/vlan10", config_, Access::configurable);
    directory_.entryIs("status/vlan10", status_, Access::readOnly);
  }

  void run() {
    const unsigned steps = below(120);
    for (unsigned step = 0; step < steps; ++step) {
      change();
      if (below(3) == 0) carry();
    }
    if (!line_) connect();
    line_->settle();
  }
  // The first line in which copy and original differ; empty when they are equal.
  std::string difference() const {
    std::istringstream original(described(*config_) + described(*status_));
    std::istringstream copy(described(*copies_.copy<QuerierConfig>("config/vlan10")) +
                            described(*copies_.copy<QuerierStatus>("status/vlan10")));
    std::string wanted;
    std::string found;
    while (!std::getline(original, wanted).fail() | !std::getline(copy, found).fail()) {
      if (wanted != found) return "wanted: " + wanted + ", found: " + found;
      wanted.clear();
      found.clear();
    }
    return {};
  }
  std::string faults() { return line_->server().fault() + line_->copy().fault(); }

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  IpAddr group() { return IpAddr(0xe8000000u + below(6)); }
  IpAddr source() { return IpAddr(0x0a000000u + below(4)); }

  void change() {
    switch (below(8)) {
      case 0: config_->robustnessIs(below(8)); break;
      case 1: status_->v1QueriesSentInc(1); break;
      case 2: status_->groupDel(group()); break;
      case 3: status_->generalQueryExpiryTimeIs(below(1000)); break;
      case 4: status_->groupIs(group())->sourceDel(source()); break;
      case 5: status_->groupIs(group())->sourceIs(source())->expiryTimeIs(below(1000)); break;
      case 6: status_->groupIs(group())->lastReporterIs(source()); break;
      case 7: burst(); break;
    }
  }

  void burst() {
    switch (below(4)) {
      case 0: status_->groupDelAll(); break;
      case 1: status_->groupNotify(); break;
      case 2: status_->groupNotify(group()); break;
      case 3:
        for (unsigned s = 0; s < 40; ++s) {
          status_->groupIs(group())->sourceIs(IpAddr(0x0b000000u + below(60)))->expiredIs(true);
        }
        break;
    }
  }

  void connect() {
    line_.emplace(directory_, copies_, Rights::configure,
                  Mox::NboAttrLog::OutStream::leastCapacity + below(3000));
  }

  void carry() {
    if (!line_) return connect();
    if (below(40) == 0) return line_.reset();
    line_->carry(below(5) == 0 ? AttrLogLine::everything : below(1500));
  }

  std::mt19937 random_;
  const Ptr<QuerierConfig> config_ = querierConfigFactory("vlan10");
  const Ptr<QuerierStatus> status_ = querierStatusFactory();
  Directory directory_;
  CopyHost copies_;
  std::optional<AttrLogLine> line_;
};

TEST(AttrLogConvergenceTest, copyEqualsTheOriginalAfterAnyHistory) {
  const char* wanted = std::getenv("ATTR_LOG_SEED");
  const unsigned first = wanted == nullptr ? 1 : static_cast<unsigned>(std::atoi(wanted));
  const unsigned runs = wanted == nullptr ? 10000 : 1;
  for (unsigned seed = first; seed < first + runs; ++seed) {
    History history(seed);
    history.run();
    ASSERT_EQ(history.faults(), "") << "ATTR_LOG_SEED=" << seed;
    ASSERT_EQ(history.difference(), "") << "ATTR_LOG_SEED=" << seed;
  }
}

}  // namespace
}  // namespace Gmp::Igmp
