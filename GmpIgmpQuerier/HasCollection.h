// The end of every attempt to make a value that holds a collection out of its text.
#pragma once

#include <MoxBase/Fatal.h>
#include <MoxBase/Place.h>

namespace Gmp::Igmp {

[[noreturn]] inline void hasCollection(const char* text, Mox::Place where = Mox::Place::here()) {
  Mox::fatal("GmpIgmpQuerier.tin", text, where);
}

}  // namespace Gmp::Igmp
