// The attribute-log socket of a scenario: a real one whose queue is really filled and drained.
#pragma once

#include <NboAttrLog/SocketOutSm.h>

namespace Agent::Scenario {

class CongestedSocket final : public Mox::NboAttrLog::SocketOutSm {
 public:
  CongestedSocket();
  ~CongestedSocket() override;

  int sockFd() const override { return ends_[0]; }
  int connectionFd() const override { return -1; }

  // Writes until the socket takes no more, or reads until nothing is left.
  void congestedIs(bool on);

 private:
  int ends_[2] = {-1, -1};
};

}  // namespace Agent::Scenario
