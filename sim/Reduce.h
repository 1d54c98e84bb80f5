// Shortens a story that breaks an invariant: what remains still breaks the same one, and no line,
// last host or last router of it can be left out.
#pragma once

#include "Canary.h"
#include "Story.h"

namespace Sim {

Story reduced(const Story& story, Invariant broken, Canary canary = Canary::none);

}  // namespace Sim
