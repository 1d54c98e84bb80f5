#include <MoxBase/Ptr.h>

namespace Mox {

namespace detail {
bool threadSafePtrs = false;
}

bool threadSafePtrs() { return detail::threadSafePtrs; }
void threadSafePtrsIs(bool on) { detail::threadSafePtrs = on; }

}  // namespace Mox
