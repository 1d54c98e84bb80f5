// While it exists, reports the library's event-log messages as events: versionMismatch for a query
// of another version, invalidSource for an invalid source, error for any other message. Messages
// that a rate limit suppresses are not reported. Only one object at a time; the sink must outlive
// it.
//
//   const LibraryMessages messages(*sink);
#pragma once

#include <Events/Event.h>

namespace Agent {

class LibraryMessages {
 public:
  explicit LibraryMessages(EventSink& sink);
  ~LibraryMessages();
  LibraryMessages(const LibraryMessages&) = delete;
  LibraryMessages& operator=(const LibraryMessages&) = delete;
};

}  // namespace Agent
