// Fatal assertions: for programming errors only, on in release builds too.
//
// Bad input from outside never ends here: it is counted and dropped. A fatal assertion writes the
// model file, the line, the function and the expression to standard error, calls the registered
// hook (which may save a trace), and aborts.
//
//   fatalUnless(initialized_, "GmpIgmpQuerierSm.tin", "initialized( )");
#pragma once

#include <string_view>

#include <MoxBase/Export.h>
#include <MoxBase/Place.h>

namespace Mox {

// Never returns.
[[noreturn]] MOX_PUBLIC void fatal(const char* modelFile, const char* expression,
                                   Place where = Place::here());

inline void fatalUnless(bool holds, const char* modelFile, const char* expression,
                        Place where = Place::here()) {
  if (!holds) [[unlikely]] {
    fatal(modelFile, expression, where);
  }
}

// Called once, before the process aborts; null (the default) for none.
using FatalHook = void (*)();
MOX_PUBLIC void fatalHookIs(FatalHook hook);

// Writes a line to standard error, or nothing when that does not take it soon: a process that is
// about to abort must not wait for a terminal that is stopped.
MOX_PUBLIC void fatalLine(std::string_view line);

}  // namespace Mox
