// What a request is answered with: a status, and a text or a body in parts.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

// A body that is made while it is sent: a part is asked for when the client has taken the one
// before, so that a slow client makes nothing wait but itself.
class WebBody {
 public:
  // more: ask again; waits: ask again after the call of `wake`; done: the body has ended.
  enum class Progress { more, waits, done };

  WebBody() = default;
  WebBody(const WebBody&) = delete;
  WebBody& operator=(const WebBody&) = delete;
  virtual ~WebBody() = default;

  virtual Progress append(std::string& out) = 0;
  // Of a body that waits: called at most once for each time that it waits.
  virtual void wakeIs(const std::function<void()>&) {}
  // Is sent while a body waits for long, so that a client that has gone is noticed.
  virtual std::string idleText() const { return {}; }
};

struct WebAnswer {
  unsigned status = 200;
  std::string type = "application/json";
  std::string text = {};
  std::unique_ptr<WebBody> body = {};  // in place of the text
  std::vector<std::pair<std::string, std::string>> headers = {};
};

// An error as JSON: {"error":"there is no interface eth7"}.
WebAnswer webError(unsigned status, const std::string& what);

}  // namespace Agent
