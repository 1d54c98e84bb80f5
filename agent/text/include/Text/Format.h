// The format of a verb's output: text for people, or JSON for programs.
#pragma once

namespace Agent {

enum class Format { text, json };

}  // namespace Agent
