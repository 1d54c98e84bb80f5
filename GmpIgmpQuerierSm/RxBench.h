// Fixture of the receive path's tests: a quiet querier whose published status is written down, so
// that a packet's whole effect on it can be compared.
//
//   startWatched();
//   receiveV2Report(group_);
//   EXPECT_EQ(journal_.back(), "status.v2ReportReceived 1");
#pragma once

#include "TestBench.h"

namespace Gmp::Igmp::testing {

class RxBench : public TestBench {
 protected:
  // Configured for that version.
  void startAs(IgmpVersion version) {
    release();
    config_->querierVersionIs(version);
    startWatched();
  }
  void startWatched() {
    startQuiet();
    watch(status_, "status");
  }
  // The interface gets a boundary of that one prefix.
  void boundTo(const char* prefix) {
    const auto boundary = makePtr<Ilvo::IntfBoundaryStatus>();
    boundary->boundaryIs(*Ilvo::IpGenPrefix::parse(prefix), true);
    querier_->mcastBoundaryIntfStatusIs(boundary);
  }
};

}  // namespace Gmp::Igmp::testing
