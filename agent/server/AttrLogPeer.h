// One process that is connected to the attribute log.
#pragma once

#include <functional>
#include <string>

#include <Local/LocalConnection.h>
#include <NboAttrLog/Directory.h>
#include <NboAttrLog/Session.h>

#include "ReaderArrears.h"

namespace Agent {

class AttrLogPeer final : public LocalConnection, private Mox::NboAttrLog::SessionHost {
 public:
  struct Handlers {
    // Called before and after the peer may have changed something.
    std::function<void()> turn;
    // Output waits for the peer; or it flows again.
    std::function<void(const AttrLogPeer& peer, bool isBlocked)> onBlocked;
    // The connection is over: to be released. Empty when the peer just closed it.
    std::function<void(const AttrLogPeer& peer, const std::string& why)> onEnded;
  };

  struct Setup {
    std::string name;  // of this side
    Mox::NboAttrLog::Rights rights;
    Mox::Seconds stallTimeout;
  };

  AttrLogPeer(boost::asio::io_context& io, Descriptor socket, Mox::NboAttrLog::Directory& directory,
              const Setup& setup, Handlers handlers);

  // "user 1000 (process 4711)"
  const std::string& name() const { return name_; }
  bool greeted() const { return session_.greeted(); }
  Mox::Seconds connectedSince() const { return connectedSince_; }
  Mox::Seconds stallTimeout() const { return stallTimeout_; }
  // To be called at each poll.
  bool isTooSlow();

 private:
  void handleInput(std::string_view bytes) override;
  void handleInputEnd() override;
  std::string_view output() override;
  void outputTaken(size_t bytes) override { session_.stream().taken(bytes); }
  void handleOutputEnd() override { handleInputEnd(); }
  void handleBlocked(bool isBlocked) override { handlers_.onBlocked(*this, isBlocked); }

  void onOutput() override { outputDue(); }
  std::string whyRefused(const Mox::EntityBase& entity,
                         std::span<const Mox::NboAttrLog::Written> values) override;

  const Handlers handlers_;
  const std::string name_;
  const Mox::Seconds connectedSince_;
  const Mox::Seconds stallTimeout_;
  Mox::NboAttrLog::Session session_;
  ReaderArrears arrears_;
};

}  // namespace Agent
