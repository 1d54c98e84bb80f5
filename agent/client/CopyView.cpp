#include <Client/CopyView.h>

namespace Agent {

InterfaceView viewOf(const std::string& name, const AttrLogCopy::Interface& copy) {
  InterfaceView view{.name = name, .address = {}, .status = copy.status};
  if (copy.state) {
    view.address = copy.state->address();
    view.running = copy.state->running();
    view.electedTime = copy.state->electedTime();
    view.state = copy.state;
  }
  view.intake = copy.intake;
  view.intakeStatus = copy.intakeStatus;
  view.isCopy = !copy.state;
  return view;
}

}  // namespace Agent
