#include <Text/WallClock.h>

#include <cmath>
#include <ctime>

#include <fmt/format.h>

#include <Mox/ActivityClock.h>

namespace Agent {

namespace {

constexpr Mox::Seconds endOfYear9999 = 253402300800.0;

std::optional<Mox::Seconds>& fixedDifference() {
  static std::optional<Mox::Seconds> difference;
  return difference;
}

}  // namespace

Mox::Seconds wallTime(Mox::Seconds time) {
  if (fixedDifference()) return time + *fixedDifference();
  timespec real{};
  clock_gettime(CLOCK_REALTIME, &real);
  const Mox::Seconds age = Mox::now() - time;
  return static_cast<double>(real.tv_sec) + static_cast<double>(real.tv_nsec) * 1e-9 - age;
}

void wallClockDifferenceIs(std::optional<Mox::Seconds> difference) {
  fixedDifference() = difference;
}

UtcText::UtcText(Mox::Seconds sinceEpoch) {
  const double micros = std::round(sinceEpoch * 1e6);
  if (!(micros >= 0.0 && micros < endOfYear9999 * 1e6)) return;
  const auto whole = static_cast<Mox::U64>(micros);
  const auto second = static_cast<std::time_t>(whole / 1'000'000);
  std::tm day{};
  gmtime_r(&second, &day);
  const auto end = fmt::format_to_n(
      text_.data(), text_.size(), "{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:06}Z", day.tm_year + 1900,
      day.tm_mon + 1, day.tm_mday, day.tm_hour, day.tm_min, day.tm_sec, whole % 1'000'000);
  size_ = end.size;
}

std::string timeOfDayText(Mox::Seconds time) {
  const auto second = static_cast<std::time_t>(wallTime(time));
  std::tm day{};
  localtime_r(&second, &day);
  return fmt::format("{:02}:{:02}:{:02}", day.tm_hour, day.tm_min, day.tm_sec);
}

}  // namespace Agent
