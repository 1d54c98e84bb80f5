// Durations as people read them.
#pragma once

#include <string>

#include <MoxBase/Types.h>

namespace Agent {

// "3.2s", "42s", "4m10s", "1h02m", "3d04h"; "-" for one that is not finite.
std::string durationText(Mox::Seconds seconds);

}  // namespace Agent
