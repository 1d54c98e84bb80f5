// Makes events of the library's event-log messages, as long as it lives: a query of another version
// becomes versionMismatch, an invalid source invalidSource, anything else error. Messages
// that a rate limit holds back are dropped. One at a time; the sink must outlive it.
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
