#include <Ilvo/PktManager.h>

#include <new>

namespace Ilvo {

namespace {
constinit PktManager theManager;
}

PktManager& pktManager() { return theManager; }

Mox::Ptr<Pkt> PktManager::pkt(std::size_t headroom) {
  if (failures_ > 0) {
    --failures_;
    return nullptr;
  }
  try {
    return Mox::makePtr<Pkt>(headroom);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace Ilvo
