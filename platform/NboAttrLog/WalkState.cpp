#include <NboAttrLog/WalkState.h>

#include <algorithm>
#include <iterator>

#include <MoxBase/Fatal.h>

namespace Mox::NboAttrLog {

WalkState nextState(WalkState from, WalkStop stop) {
  const auto* const found =
      std::ranges::find_if(walkTransitions, [&](const WalkTransition& transition) {
        return transition.from == from && transition.stop == stop;
      });
  fatalUnless(found != std::end(walkTransitions), "NboAttrLog", "a walk stopped where it cannot");
  return found->to;
}

}  // namespace Mox::NboAttrLog
