// Requests to the running agent over its request socket. Each call returns when the answer, or the
// next line of it, is there.
//
//   EventLoop loop;
//   RequestClient client(loop, requestSocketPath(servedAttrLogSocketPath()));
//   client.call("eth0", "clearCounters");
//   client.trace("IgmpPacket");
//   while (const auto line = client.nextTrace()) ...
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <Client/AttrLogClient.h>
#include <Local/EventLoop.h>
#include <MoxBase/Types.h>

namespace Agent {

// Every call throws BadRequest when the agent rejects the request as such, and std::runtime_error
// with the reason when the agent refuses or fails, goes, sends nothing for too long or does not
// keep to the protocol.
class RequestClient {
 public:
  // The value at a path: one line of JSON, or lines for people.
  struct PathText {
    std::string json;
    std::vector<std::string> lines;
  };
  struct Handle {
    std::string json;
    std::string name;
    int level = 0;
  };
  // A line of the traces, or the number of those that were overwritten before they were sent.
  struct TraceLine {
    std::string json;
    std::optional<Mox::U64> lost = {};  // none for a line
    Mox::Seconds time = 0.0;
    int level = 0;
    std::string handle = {};
    std::string text = {};
  };

  // Connects. Throws ConnectError.
  RequestClient(EventLoop& loop, std::string path, std::chrono::seconds silence = longestSilence);
  ~RequestClient();
  RequestClient(const RequestClient&) = delete;
  RequestClient& operator=(const RequestClient&) = delete;

  void call(const std::string& interface, const std::string& operation);
  PathText get(const std::string& path);
  // The paths that begin so.
  std::vector<std::string> completions(const std::string& prefix);

  // Of one handle, or of all of them where the name is empty.
  std::vector<Handle> handles(const std::string& handle);
  void levelIs(const std::string& handle, int level);
  // Asks for the recorded lines.
  void trace(const std::string& handle);
  // Asks for them and for all later ones, however long these take; SIGINT and SIGTERM end it.
  void followTraces(const std::string& handle);
  // The next of these lines; none at their end.
  std::optional<TraceLine> nextTrace();
  // There is a line already: the next call need not wait.
  bool isLineReady() const;

 private:
  class Connection;
  struct Answer;

  // Sends the request, one line of JSON.
  void send(const std::string& request);
  // The next line of the answer; none once the loop was stopped.
  std::optional<Answer> nextAnswer();
  // The answer of one line.
  Answer onlyAnswer();
  // The result of `read`, which takes the answer apart; an answer that lacks something is an error.
  template <class Read>
  auto understood(Read read) const;

  EventLoop& loop_;
  const std::string path_;
  const std::chrono::seconds silence_;
  bool isFollowing_ = false;
  std::shared_ptr<Connection> connection_;
};

}  // namespace Agent
