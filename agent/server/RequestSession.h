// One client's requests and their answers: bytes in, bytes out, whatever moves them.
//
// Requests are answered one after the other, the next one when the last answer has been taken.
// What is kept is bounded: a longest line of the client's, a piece of the answer. What is no
// request ends the session with an error, once that is taken.
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

  RequestSession(const RequestServices& services, Request::Rights rights)
      : services_(services), rights_(rights) {}

  // How many bytes it takes in now. None while lines wait that fill it.
  size_t room() const;
  void in(std::string_view bytes);
  // The client says nothing more. What it has asked for is still answered, but it is not followed
  // up.
  void inEnd() { inEnded_ = true; }

  // What is to be sent, made when asked for and kept until it is taken. Empty when there is nothing
  // now.
  std::string_view out();
  void taken(size_t bytes) { out_.erase(0, bytes); }
  // An answer is under way: there may be more of it whenever something has happened.
  bool answering() const { return answer_ != nullptr; }
  // Nothing will follow what is to be sent.
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
  std::string out_;
  bool failed_ = false;
};

}  // namespace Agent
