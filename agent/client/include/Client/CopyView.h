// The copies of an interface as reports take them.
#pragma once

#include <string>

#include <Client/AttrLogCopy.h>
#include <Report/InterfaceView.h>

namespace Agent {

InterfaceView viewOf(const std::string& name, const AttrLogCopy::Interface& copy);

}  // namespace Agent
