#include <GmpIgmpQuerierSm/QueryOutput.h>

namespace Gmp::Igmp {

// `writableCount` can be written by name, too, without a query.
void QueryOutput::onWritableCount() {
  const QuerierSm& querier = *notifier();
  if (!querier.sendPkt()) return;
  const Handler handler = handler_;  // the call may destroy this output
  handler({querier.ipAddr(), querier.dstGroup(), querier.sendPkt()});
}

}  // namespace Gmp::Igmp
