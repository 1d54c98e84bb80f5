// How a verb prints: for people or for programs.
#pragma once

namespace Agent {

enum class Format { text, json };

}  // namespace Agent
