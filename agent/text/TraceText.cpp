#include <Text/TraceText.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <Brevlog/Ring.h>
#include <Mox/Trace.h>
#include <MoxBase/Fatal.h>

namespace Agent {

namespace {

constexpr std::string_view tracePrefix = "igmpq-trace-";
constexpr std::string_view traceSuffix = ".txt";

std::string& traceFolder() {
  static auto* folder = new std::string;  // a fatal assertion may come at the very end
  return *folder;
}

bool writeRing(std::FILE* file) {
  Mox::brevlog().forEach([&](const Brevlog::Ring::Line& line) {
    const std::string text = traceText(line.time, line.level, line.facility, line.parts()) + '\n';
    std::fwrite(text.data(), 1, text.size(), file);
  });
  return std::ferror(file) == 0;
}

// A file of that name is left over from an old process, or a link set as a trap: it is not written
// into.
bool writeTrace(const std::string& path) {
  ::unlink(path.c_str());
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
  if (fd < 0) return false;
  std::FILE* file = ::fdopen(fd, "w");
  if (file == nullptr) return false;
  const bool written = writeRing(file);
  return std::fclose(file) == 0 && written;
}

// An agent that is started again after each end would fill the folder.
void removeOldTraces(const std::filesystem::path& folder) {
  std::vector<std::pair<std::filesystem::file_time_type, std::filesystem::path>> traces;
  std::error_code ignored;
  for (std::filesystem::directory_iterator at(folder, ignored), end; !ignored && at != end;
       at.increment(ignored)) {
    const std::string name = at->path().filename();
    if (!name.starts_with(tracePrefix) || !name.ends_with(traceSuffix)) continue;
    std::error_code gone;
    traces.emplace_back(at->last_write_time(gone), at->path());
  }
  std::sort(traces.begin(), traces.end());
  for (size_t i = 0; i + tracesKept < traces.size(); ++i) {
    std::filesystem::remove(traces[i].second, ignored);
  }
}

void leaveTrace() {
  std::error_code ignored;
  const std::filesystem::path folders[] = {traceFolder(), std::filesystem::current_path(ignored)};
  for (const std::filesystem::path& folder : folders) {
    if (folder.empty()) continue;
    const std::string path = folder / fmt::format("{}{}{}", tracePrefix, getpid(), traceSuffix);
    if (writeTrace(path)) {
      Mox::fatalLine(fmt::format("igmpq: the trace up to here is in {}\n", path));
      return;
    }
    const std::string why = std::generic_category().message(errno);
    Mox::fatalLine(fmt::format("igmpq: cannot write the trace to {}: {}\n", path, why));
  }
}

}  // namespace

std::string traceText(Mox::Seconds time, int level, std::string_view handle,
                      std::string_view text) {
  return fmt::format("{:.6f} {:2} {:<16} {}", time, level, handle, text);
}

void fatalTraceFolderIs(const std::string& folder) {
  traceFolder() = folder;
  removeOldTraces(folder);
  Mox::fatalHookIs(leaveTrace);
}

}  // namespace Agent
