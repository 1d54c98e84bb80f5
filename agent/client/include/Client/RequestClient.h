// Sends requests to the running agent over its request socket. Each call waits for the answer, or
// for the next line of it.
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

// Every call throws BadRequest when the request itself is wrong. It throws std::runtime_error with
// the reason when the agent refuses or fails, closes the connection, sends nothing for too long or
// violates the protocol.
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
    std::optional<Mox::U64> lost = {};  // the number; none when this is a line
    Mox::Seconds time = 0.0;
    int level = 0;
    std::string handle = {};
    std::string text = {};
  };
  // A change that a reload made, or a fault for which it made none.
  struct Change {
    std::string json;
    std::string text;
    bool isFault = false;
  };
  // The value in JSON, and as people read it.
  struct Setting {
    std::string key;  // in JSON
    std::string name;
    std::string json;
    std::string text;
    std::string origin;  // empty for a value that follows from others
  };
  struct Settings {
    std::string interface;  // empty: those of the agent as a whole
    std::vector<Setting> settings;
  };

  // Connects. Throws ConnectError.
  RequestClient(EventLoop& loop, std::string path, std::chrono::seconds silence = longestSilence);
  ~RequestClient();
  RequestClient(const RequestClient&) = delete;
  RequestClient& operator=(const RequestClient&) = delete;

  void call(const std::string& interface, const std::string& operation);
  // Ends the groups of one interface, or of all for an empty name; only one group, or all for an
  // empty text. Returns how many there were.
  Mox::U64 clearGroups(const std::string& interface, const std::string& group);
  // Has the agent read its configuration again. With a fault there are nothing but faults.
  std::vector<Change> reload();
  // The agent's own first, then those of that interface, or of all for an empty name.
  std::vector<Settings> settings(const std::string& interface);
  PathText get(const std::string& path);
  // The paths that begin with `prefix`.
  std::vector<std::string> completions(const std::string& prefix);

  // One trace handle, or all of them when the name is empty. The same holds for the calls below.
  std::vector<Handle> handles(const std::string& handle);
  void levelIs(const std::string& handle, int level);
  // Requests the recorded lines.
  void trace(const std::string& handle);
  // Requests these and all later lines. Waits for later ones without a limit; SIGINT and SIGTERM
  // end the wait.
  void followTraces(const std::string& handle);
  // The next requested line; none after the last.
  std::optional<TraceLine> nextTrace();
  // True when nextTrace would return without waiting.
  bool isLineReady() const;

 private:
  class Connection;
  struct Answer;

  // Sends the request, one line of JSON.
  void send(const std::string& request);
  // Waits for the next line of the answer; none when the loop was stopped.
  std::optional<Answer> nextAnswer();
  // The answer to a request that has one line.
  Answer onlyAnswer();
  // The result of `read`, which parses the answer; an incomplete answer is a protocol error.
  template <class Read>
  auto understood(Read read) const;

  EventLoop& loop_;
  const std::string path_;
  const std::chrono::seconds silence_;
  bool isFollowing_ = false;
  std::shared_ptr<Connection> connection_;
};

}  // namespace Agent
