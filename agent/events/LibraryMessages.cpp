#include <Events/LibraryMessages.h>

#include <charconv>
#include <string>
#include <string_view>
#include <vector>

#include <GmpIgmpQuerier/ModelLogs.h>
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>

namespace Agent {

namespace {

// What stands in `text` for each placeholder of the format it was made with. An argument ends where
// the format's next words begin; they do not occur in addresses, numbers or interface names.
std::vector<std::string> argumentsOf(std::string_view format, std::string_view text) {
  std::vector<std::string> arguments;
  size_t mark = format.find('%');
  text.remove_prefix(std::min(mark, text.size()));
  while (mark != std::string_view::npos) {
    format.remove_prefix(mark + 2);
    mark = format.find('%');
    const std::string_view words = format.substr(0, mark);
    const size_t end =
        mark == std::string_view::npos ? text.size() - words.size() : text.find(words);
    if (end > text.size()) break;
    arguments.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + words.size(), text.size()));
  }
  return arguments;
}

unsigned numberOf(const std::string& text) {
  unsigned number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

Event eventOf(const Mox::EventLogEntry& entry) {
  Event event{.time = Mox::now()};
  event.text = entry.text;
  const std::string_view name = entry.message.name;
  const auto arguments = argumentsOf(entry.message.format, entry.text);
  if (name == Gmp::Igmp::igmpMessageInvalidSource.message().name) {
    event.kind = Event::invalidSource;
  } else if (name == Gmp::Igmp::gmpIgmpQueryVersionConfiguredDiscrepancy.message().name &&
             arguments.size() == 3) {
    event.kind = Event::versionMismatch;
    event.version = numberOf(arguments[0]);
    event.interface = arguments[1];
    event.configuredVersion = numberOf(arguments[2]);
  }
  return event;
}

}  // namespace

LibraryMessages::LibraryMessages(EventSink& sink) {
  Mox::eventLogSinkIs([&sink](const Mox::EventLogEntry& entry) {
    if (!entry.limited) sink.event(eventOf(entry));
  });
}

LibraryMessages::~LibraryMessages() { Mox::eventLogSinkIs({}); }

}  // namespace Agent
