// The text of traces.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <MoxBase/Types.h>

namespace Agent {

// "1021.000250  3 GmpIgmpQuerierSm eth0: ...": seconds on the agent's clock, level, handle, text.
std::string traceText(Mox::Seconds time, int level, std::string_view handle, std::string_view text);

// How many trace files of earlier processes are kept.
inline constexpr size_t tracesKept = 8;

// After this call a fatal assertion writes the text of the trace ring into the file
// igmpq-trace-PID.txt in that folder, or in the working directory if that fails, and prints its
// path on standard error. Only the newest of such files are kept.
void fatalTraceFolderIs(const std::string& folder);

}  // namespace Agent
