#include <GmpIgmpQuerier/ModelLogs.h>

namespace Gmp::Igmp {

Mox::TraceHandle& igmpPacketTrace = Mox::TraceHandle::named("IgmpPacket", "GmpIgmpQuerierSm.tin");

Mox::EventLogHandle igmpMessageInvalidSource({
    .name = "IGMP_MESSAGE_INVALID_SOURCE",
    .severity = 3,
    .format = "Received invalid source %s for group %s.",
    .explanation = "Source sent by host is not a unicast address.",
    .recommendedAction = "Capture the packet using tcpdump and contact support.",
    .interval = 0.0,
    .burst = 1.0,
    .flag = 0,
});

}  // namespace Gmp::Igmp
