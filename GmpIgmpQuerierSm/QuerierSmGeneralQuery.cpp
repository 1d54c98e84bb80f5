// The schedule of general queries (RFC 3376 8.2, 8.6, 8.7).
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include "SendQuery.h"

namespace Gmp::Igmp {

using Mox::trace;

// Sends the general query that is due, and schedules the next one.
void QuerierSm::handleQueryIntervalTimer() {
  if (!initialized()) return;
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleQueryIntervalTimer", "()");
  sendGeneralQuery(this);
  doSetTimer(queryIntervalTimerId, nextGeneralQueryDelay());
}

// The startup phase (RFC 3376 8.7) lasts until that many queries have been sent: one that could not
// be sent does not count.
Seconds QuerierSm::nextGeneralQueryDelay() const {
  const U32 sent = querierStatus_->totalGeneralQueriesSent();
  const bool startup = querierConfig()->startupQueryCount() > sent;
  const Seconds delay =
      startup ? querierStatus_->startupQueryInterval() : querierStatus_->queryInterval();
  return delay != 0.0 ? delay : querierStatus_->queryInterval();
}

}  // namespace Gmp::Igmp
