// The error messages that several users of the agent's sockets share.
#pragma once

#include <chrono>
#include <string>

namespace Agent {

// The options of `igmpq run` that name the groups of users with rights.
inline constexpr const char* readGroupOption = "--read-group";
inline constexpr const char* configureGroupOption = "--configure-group";

// `what` completes "not permitted to ..."; the option is one of these two.
std::string notPermittedText(const std::string& what, const char* option);
// The bytes received from the socket at that path violate the protocol.
std::string notUnderstoodText(const std::string& path, const std::string& why);
// The agent has sent nothing for that long.
std::string silenceText(const std::string& path, std::chrono::seconds silence);
// The agent closed the connection.
std::string agentGoneText();
// `known` lists the names of the existing interfaces.
std::string noInterfaceText(const std::string& name, const std::string& known);

}  // namespace Agent
