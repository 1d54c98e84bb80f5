// The invariants of a querier hold after each step of random sequences.
#include "RandomBench.h"

namespace Gmp::Igmp::testing {

namespace {

class QuerierPropertyTest : public RandomBench {
 protected:
  void expectInvariants() {
    for (const std::string& breach : invariants_->breaches()) ADD_FAILURE() << breach;
    const ReceiveCounters counted = receiveCountersOf(*status_);
    EXPECT_TRUE(counted == expected_) << textOf(counted) << "; fed " << textOf(expected_);
  }
};

TEST_F(QuerierPropertyTest, randomSequencesKeepTheInvariants) {
  tracingIs(false);
  size_t sent = 0;
  size_t joins = 0;
  const U64 runs = forEachSequence(
      10000, [&] { expectInvariants(); },
      [&] {
        sent += sent_.size();
        joins += status_->joins();
      });
  EXPECT_GT(sent, runs) << "the sequences must make the querier send";
  EXPECT_GT(joins, runs) << "and have it learn groups";
}

}  // namespace

}  // namespace Gmp::Igmp::testing
