// Event-log messages: the few conditions that are reported to operators.
//
// A handle is declared once for each message: name, severity, format, explanation, recommended
// action, and its rate limit: at most `burst` messages of the same arguments in `interval` seconds
// of the activity clock; an interval of 0 sets no limit. The sink receives every message, with a
// mark on those that the limit holds back. In the format, %s and %d stand for the arguments in
// order.
//
//   EventLogHandle invalidSource({"IGMP_MESSAGE_INVALID_SOURCE", 3, "Received ... %s.", ...});
//   invalidSource.log(source, group);
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <Mox/AttrValue.h>
#include <Mox/Value.h>
#include <MoxBase/Export.h>
#include <MoxBase/Text.h>
#include <MoxBase/Types.h>

namespace Mox {

struct EventLogMessage {
  const char* name;
  int severity;  // 0 emergency to 7 debug, as syslog counts
  const char* format;
  const char* explanation;
  const char* recommendedAction;
  Seconds interval;
  double burst;
  int flag;
};

// A message as the sink receives it.
struct EventLogEntry {
  const EventLogMessage& message;
  std::string text;
  bool limited;                      // held back by the rate limit
  std::span<const Value> arguments;  // of the message, in order; valid during the call
};

using EventLogSink = std::function<void(const EventLogEntry&)>;
// Asked before the text of a message is made; a message that is not wanted never reaches the sink.
using EventLogWanted = std::function<bool(const EventLogMessage&)>;
// Replaces the sink; an empty function restores the default, a line on standard error. All limits
// begin anew: a sink that has received nothing yet has not received too much.
MOX_PUBLIC void eventLogSinkIs(EventLogSink sink, EventLogWanted isWanted = {});

class MOX_PUBLIC EventLogHandle {
 public:
  explicit EventLogHandle(const EventLogMessage& message);
  ~EventLogHandle();
  EventLogHandle(const EventLogHandle&) = delete;
  EventLogHandle& operator=(const EventLogHandle&) = delete;

  const EventLogMessage& message() const { return message_; }
  static std::vector<const EventLogHandle*> all();

  template <class... Arg>
  void log(const Arg&... args) {
    if (isWanted()) emit({textOf(args)...}, {valueFrom(args)...});
  }

 private:
  // How many messages of one list of arguments went out since when.
  struct Recent {
    Seconds since;
    double count;
  };
  friend void eventLogSinkIs(EventLogSink sink, EventLogWanted isWanted);
  bool isWanted() const;
  void emit(const std::vector<std::string>& args, const std::vector<Value>& values);
  bool limited(const std::string& text);

  EventLogMessage message_;
  std::unordered_map<std::string, Recent> recent_;
};

}  // namespace Mox
