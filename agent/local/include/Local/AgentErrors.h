// The sentences by which both ends of the agent's sockets say what went wrong, each of them once.
#pragma once

#include <chrono>
#include <string>

namespace Agent {

// `what` completes "not permitted to ...".
std::string notPermittedText(const std::string& what);
// What came from the socket at that path breaks the protocol.
std::string notUnderstoodText(const std::string& path, const std::string& why);
// The agent has sent nothing for that long.
std::string silenceText(const std::string& path, std::chrono::seconds silence);
// The agent closed the connection.
std::string agentGoneText();
// `known` are the names of the interfaces that there are.
std::string noInterfaceText(const std::string& name, const std::string& known);

}  // namespace Agent
