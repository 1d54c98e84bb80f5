// Traces as people read them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <MoxBase/Types.h>

namespace Agent {

// "1021.000250  3 GmpIgmpQuerierSm eth0: ...": seconds on the agent's clock, level, handle, text.
std::string traceText(Mox::Seconds time, int level, std::string_view handle, std::string_view text);

// How many files of earlier processes stay in the folder.
inline constexpr size_t tracesKept = 8;

// From here on a fatal assertion writes the trace ring as text into a file of that folder, else of
// the working directory: igmpq-trace-PID.txt. Standard error names it. Of the files that are there
// the newest stay.
void fatalTraceFolderIs(const std::string& folder);

}  // namespace Agent
