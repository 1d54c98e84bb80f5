#include <Agent/TraceText.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <Brevlog/Ring.h>
#include <Mox/Fatal.h>
#include <Mox/Trace.h>

namespace Agent {

namespace {

std::string& traceFolder() {
  static auto* folder = new std::string;  // a fatal assertion may come at the very end
  return *folder;
}

bool writeRing(std::FILE* file) {
  Mox::brevlog().forEach([&](const Brevlog::Ring::Line& line) {
    const std::string text = traceText(line.time, line.level, line.facility, line.pieces()) + '\n';
    std::fwrite(text.data(), 1, text.size(), file);
  });
  return std::ferror(file) == 0;
}

// A file of that name is an old one's, or somebody's trap: it is not written into.
bool writeTrace(const std::string& path) {
  ::unlink(path.c_str());
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
  if (fd < 0) return false;
  std::FILE* file = ::fdopen(fd, "w");
  if (file == nullptr) return false;
  const bool written = writeRing(file);
  return std::fclose(file) == 0 && written;
}

void leaveTrace() {
  std::error_code ignored;
  const std::filesystem::path folders[] = {traceFolder(), std::filesystem::current_path(ignored)};
  for (const std::filesystem::path& folder : folders) {
    if (folder.empty()) continue;
    const std::string path = folder / fmt::format("igmpq-trace-{}.txt", getpid());
    if (writeTrace(path)) {
      std::fprintf(stderr, "igmpq: the trace up to here is in %s\n", path.c_str());
      return;
    }
    const std::string why = std::generic_category().message(errno);
    std::fprintf(stderr, "igmpq: cannot write the trace to %s: %s\n", path.c_str(), why.c_str());
  }
}

}  // namespace

std::string traceText(Mox::Seconds time, int level, std::string_view handle,
                      std::string_view text) {
  return fmt::format("{:.6f} {:2} {:<16} {}", time, level, handle, text);
}

void fatalTraceFolderIs(const std::string& folder) {
  traceFolder() = folder;
  Mox::fatalHookIs(leaveTrace);
}

}  // namespace Agent
