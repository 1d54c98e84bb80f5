#include <Events/LibraryMessages.h>

#include <string>

#include <GmpIgmpQuerier/ModelLogs.h>
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <Mox/ActivityClock.h>
#include <Mox/AttrValue.h>
#include <Mox/EventLog.h>

namespace Agent {

using Gmp::Igmp::gmpIgmpQueryVersionConfiguredDiscrepancy;
using Gmp::Igmp::igmpMessageInvalidSource;

namespace {

Event eventOf(const Mox::EventLogEntry& entry) {
  Event event{.time = Mox::now()};
  event.text = entry.text;
  if (&entry.message == &igmpMessageInvalidSource.message()) {
    event.kind = Event::invalidSource;
  } else if (&entry.message == &gmpIgmpQueryVersionConfiguredDiscrepancy.message()) {
    event.kind = Event::versionMismatch;
    event.version = Mox::typedFrom<Mox::U32>(entry.arguments[0]);
    event.interface = Mox::typedFrom<std::string>(entry.arguments[1]);
    event.configuredVersion = Mox::typedFrom<Mox::U32>(entry.arguments[2]);
  }
  return event;
}

}  // namespace

LibraryMessages::LibraryMessages(EventSink& sink) {
  // One packet can name hundreds of invalid sources, and these messages have no limit of their own.
  Mox::eventLogSinkIs(
      [&sink](const Mox::EventLogEntry& entry) {
        if (!entry.limited) sink.event(eventOf(entry));
      },
      [&sink](const Mox::EventLogMessage& message) {
        return &message != &igmpMessageInvalidSource.message() || sink.takes(Event::invalidSource);
      });
}

LibraryMessages::~LibraryMessages() { Mox::eventLogSinkIs({}); }

}  // namespace Agent
