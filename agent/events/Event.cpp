#include <Events/Event.h>

#include <utility>

#include <Ilvo/IgmpHdr.h>
#include <Mox/ActivityClock.h>

namespace Agent {

using Ilvo::IgmpV12Hdr;
using Ilvo::IgmpV3QueryHdr;

// The length and the code give the version, as hosts determine it (RFC 3376 7.1). Hosts answer a
// version 1 query within 10 seconds, although its code is 0 (RFC 2236 4).
Event querySentEvent(std::string interface, Ilvo::IpAddr group, const Mox::Ptr<Ilvo::Pkt>& igmp) {
  Event event{.time = Mox::now(), .interface = std::move(interface), .kind = Event::querySent};
  event.group = group;
  if (igmp->has(IgmpV3QueryHdr::bytes)) {
    const IgmpV3QueryHdr query(*igmp);
    event.version = 3;
    event.maxResponse = query.maxResponseSeconds();
    for (size_t at = 0; at < query.numSources(); ++at) event.sources.push_back(query.source(at));
    return event;
  }
  const IgmpV12Hdr query(*igmp);
  event.version = query.code() == 0 ? 1 : 2;
  event.maxResponse = query.code() == 0 ? 10.0 : query.maxResponseSeconds();
  return event;
}

}  // namespace Agent
