#include <Mox/Object.h>

namespace Mox {

Object::~Object() = default;

}  // namespace Mox
