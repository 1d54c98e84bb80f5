#include <Client/AttrLogClient.h>

#include <stdexcept>
#include <utility>
#include <vector>

#include <Client/BadRequest.h>
#include <Local/AgentErrors.h>
#include <Local/LocalSocket.h>
#include <Text/Listed.h>

namespace Agent {

const AttrLogCopy::Interface& interfaceOf(const AttrLogCopy::Interfaces& interfaces,
                                          const std::string& name) {
  const auto found = interfaces.find(name);
  if (found != interfaces.end()) return found->second;
  std::vector<std::string> names;
  for (const auto& [known, interface] : interfaces) names.push_back(known);
  throw BadRequest(noInterfaceText(name, listed(names)));
}

AttrLogClient::AttrLogClient(EventLoop& loop, const std::string& path, std::chrono::seconds silence)
    : loop_(loop),
      silence_(silence),
      copy_(loop.io(), path,
            {.onCurrent = [this] { isCurrent_ = true; },
             .onInput = [this] { inputCame_ = true; },
             .onAnswer = [this](Mox::U32) { isAnswered_ = true; },
             .onEnded =
                 [](AttrLogCopy::End end, const std::string& why) {
                   const bool isRefused = end == AttrLogCopy::End::refused;
                   throw std::runtime_error(isRefused ? "the agent refuses: " + why : why);
                 }}) {}

void AttrLogClient::fetch() { fetch(connectToAgent(copy_.path())); }

void AttrLogClient::fetch(Descriptor socket) {
  copy_.connect(std::move(socket));
  do {
    inputCame_ = false;
    if (loop_.runUntil(isCurrent_, silence_)) return;
  } while (inputCame_);
  throw std::runtime_error(silenceText(copy_.path(), silence_));
}

bool AttrLogClient::settle(std::chrono::seconds longest) {
  isAnswered_ = false;
  copy_.ask(1);
  return loop_.runUntil(isAnswered_, longest);
}

}  // namespace Agent
