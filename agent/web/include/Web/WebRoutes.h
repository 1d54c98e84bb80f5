// Which path is answered with what. Everything can be read and nothing changed.
//
//   WebRoutes routes(state);
//   WebAnswer answer = routes.answer({.target = "/api/v1/interfaces"});
#pragma once

#include <string>
#include <string_view>

#include <Web/WebAnswer.h>
#include <Web/WebState.h>

namespace Agent {

struct WebRequest {
  std::string_view target;
  std::string_view lastEventId = {};  // the field Last-Event-ID, empty where there is none
};

class WebRoutes {
 public:
  explicit WebRoutes(WebState& state) : state_(state) {}

  WebAnswer answer(const WebRequest& request) const;

 private:
  WebState& state_;
};

}  // namespace Agent
