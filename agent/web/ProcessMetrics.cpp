#include "ProcessMetrics.h"

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace Agent {

namespace {

using prometheus::MetricType;

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// The fields of /proc/self/stat behind the name, which may contain anything (proc(5)): the first
// one is number 3.
std::vector<std::string> statFields() {
  std::ifstream file("/proc/self/stat");
  std::string line;
  std::getline(file, line);
  std::istringstream rest(line.substr(std::min(line.rfind(')') + 2, line.size())));
  return {std::istream_iterator<std::string>(rest), {}};
}

std::optional<double> statNumber(const std::vector<std::string>& fields, size_t number) {
  const size_t at = number - 3;
  if (at >= fields.size()) return std::nullopt;
  return std::strtod(fields[at].c_str(), nullptr);
}

// The kernel gives the start in ticks since the machine was booted.
double startTime(double ticks) {
  timespec sinceBoot{};
  clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
  const double age = static_cast<double>(sinceBoot.tv_sec) +
                     static_cast<double>(sinceBoot.tv_nsec) * 1e-9 -
                     ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
  const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
  return now.count() - age;
}

std::optional<double> openDescriptors() {
  std::error_code error;
  const std::filesystem::directory_iterator folder("/proc/self/fd", error);
  if (error) return std::nullopt;
  // One of them is the folder itself.
  return static_cast<double>(std::distance(begin(folder), end(folder)) - 1);
}

}  // namespace

void appendProcessMetrics(MetricsText& text, std::string& out) {
  const auto add = [&](const Metric& metric, std::optional<double> value) {
    if (!value) return;
    text.familyIs(metric);
    text.add({}, *value);
    text.appendTo(out);
  };
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  add({"process_cpu_seconds_total", "Processor time of igmpq web", MetricType::Counter},
      secondsOf(used.ru_utime) + secondsOf(used.ru_stime));
  const std::vector<std::string> fields = statFields();
  const auto start = statNumber(fields, 22);
  if (start) {
    add({"process_start_time_seconds", "When igmpq web was started, since 1970"},
        startTime(*start));
  }
  add({"process_virtual_memory_bytes", "Address space of igmpq web"}, statNumber(fields, 23));
  if (const auto pages = statNumber(fields, 24)) {
    add({"process_resident_memory_bytes", "Memory of igmpq web"},
        *pages * static_cast<double>(sysconf(_SC_PAGESIZE)));
  }
  add({"process_open_fds", "Open file descriptors of igmpq web"}, openDescriptors());
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  add({"process_max_fds", "File descriptors that igmpq web may open"},
      static_cast<double>(limit.rlim_cur));
}

}  // namespace Agent
