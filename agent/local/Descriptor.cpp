#include <Local/Descriptor.h>

#include <unistd.h>

namespace Agent {

void Descriptor::close() {
  if (isOpen()) ::close(released());
}

}  // namespace Agent
