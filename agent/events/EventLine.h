// An event as a line for people, without the end of line, and as an entry of the journal.
#pragma once

#include <string>
#include <string_view>

#include <Events/Event.h>

namespace Agent {

// Built in that memory, whose contents are dropped. Control bytes, which an interface's name or a
// text may contain, are written as \x1b: a terminal would obey them.
std::string eventTextLine(const Event& event, std::string_view time, std::string memory = {});

// A line NAME=VALUE for each of its fields. No value has control bytes.
std::string eventJournalEntry(const Event& event);

}  // namespace Agent
