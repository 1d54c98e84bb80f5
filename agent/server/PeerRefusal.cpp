#include "PeerRefusal.h"

#include <Local/LocalPeer.h>
#include <Mox/EventLog.h>

namespace Agent {

namespace {

Mox::EventLogHandle peerRefused({
    .name = "IGMPQ_PEER_REFUSED",
    .severity = 4,
    .format = "Refused %s the access to %s: %s.",
    .explanation = "A process connected to a socket of the agent without the right to read, or "
                   "there were too many readers.",
    .recommendedAction = "Look at the processes of that user, or start the agent with "
                         "--read-group, --configure-group or --max-readers.",
    .interval = 60.0,
    .burst = 1.0,
    .flag = 0,
});

}  // namespace

void reportRefusal(int fd, const std::string& what, const std::string& why) {
  peerRefused.log(peerUser(fd), what, why);
}

}  // namespace Agent
