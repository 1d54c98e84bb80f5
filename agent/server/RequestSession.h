// One client's requests and their answers, without the socket: bytes in, bytes out.
//
// Requests are answered one after the other, the next one when the last answer has been taken.
// The memory is bounded: the longest line of the client and one part of an answer. A line that is
// no request ends the session with an error, once that is taken.
//
//   RequestSession session(services, Rights::read);
//   session.in(bytes);  // at most session.room()
//   session.taken(send(session.out()));
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <Server/RequestServices.h>

#include "Request.h"
#include "RequestAnswer.h"

namespace Agent {

class RequestSession {
 public:
  static constexpr size_t longestLine = 65536;  // without its end
  // Of all objects of a line. Each key is compared with those before it: a line full of them would
  // take as long as a million requests.
  static constexpr size_t mostKeys = 16;

  RequestSession(const RequestServices& services, Request::Rights rights)
      : services_(services), rights_(rights) {}

  // The answer to a request that fails.
  static std::string errorLine(const std::string& why, bool badUse);

  // How many bytes it takes now; none while waiting lines fill it.
  size_t room() const;
  void in(std::string_view bytes);
  // The client sends nothing more. Its requests are still answered, but traces are not followed any
  // longer.
  void inEnd() { inEnded_ = true; }

  // The bytes to be sent, made when asked for and kept until they are taken. Empty when there are
  // none now; while isWorking(), the next call goes on with them.
  std::string_view out();
  bool isWorking() const { return isWorking_ && out_.empty(); }
  void taken(size_t bytes) { out_.erase(0, bytes); }
  // An answer is under way: there may be more of it at any time.
  bool answering() const { return answer_ != nullptr; }
  // Everything has been answered and taken, and nothing will follow.
  bool ended() const;

 private:
  void advance();
  std::optional<std::string> takeLine();
  void answer(const std::string& line);
  void fail(const std::string& why);

  const RequestServices& services_;
  const Request::Rights rights_;
  std::string in_;  // lines that wait, and the beginning of one
  bool inEnded_ = false;
  std::unique_ptr<Answer> answer_;  // under way
  bool isWorking_ = false;          // it has more, now
  std::string out_;
  bool failed_ = false;
};

}  // namespace Agent
