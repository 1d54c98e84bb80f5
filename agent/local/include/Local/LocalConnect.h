// The way to what a running agent serves on this machine.
#pragma once

#include <string>

#include <boost/asio/local/stream_protocol.hpp>

namespace Agent {

// Connects the socket to that path. Empty when it is; else why not, and what to do.
std::string connectToAgent(boost::asio::local::stream_protocol::socket& socket,
                           const std::string& path);

}  // namespace Agent
