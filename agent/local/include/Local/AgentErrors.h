// The error messages that several users of the agent's sockets share.
#pragma once

#include <chrono>
#include <string>

namespace Agent {

// `what` completes "not permitted to ...".
std::string notPermittedText(const std::string& what);
// The bytes received from the socket at that path violate the protocol.
std::string notUnderstoodText(const std::string& path, const std::string& why);
// The agent has sent nothing for that long.
std::string silenceText(const std::string& path, std::chrono::seconds silence);
// The agent closed the connection.
std::string agentGoneText();
// `known` lists the names of the existing interfaces.
std::string noInterfaceText(const std::string& name, const std::string& known);

}  // namespace Agent
