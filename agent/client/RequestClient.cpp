#include <Client/RequestClient.h>

#include <stdexcept>
#include <utility>

#include <fmt/format.h>

#include <Client/BadRequest.h>
#include <Local/AgentErrors.h>
#include <Local/LocalConnection.h>
#include <Local/LocalSocket.h>
#include <nlohmann/json.hpp>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

// Names from a command line may hold any bytes, but JSON is UTF-8.
std::string lineOf(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string wordsOf(const Json& text) {
  return text.is_string() ? text.get<std::string>() : lineOf(text);
}

// A text, each of a list on a line of its own, or each of an object with its name.
std::vector<std::string> linesOf(const Json& texts) {
  if (!texts.is_structured()) return {wordsOf(texts)};
  std::vector<std::string> lines;
  for (const auto& [name, text] : texts.items()) {
    lines.push_back(texts.is_object() ? fmt::format("{} = {}", name, wordsOf(text))
                                      : wordsOf(text));
  }
  return lines;
}

Json traceRequest(const char* op, const std::string& handle) {
  Json json{{"op", op}};
  if (!handle.empty()) json["handle"] = handle;
  return json;
}

}  // namespace

// Keeps the bytes that come until they are whole lines that are asked for.
class RequestClient::Connection final : public LocalConnection {
 public:
  Connection(EventLoop& loop, Descriptor socket) : LocalConnection(loop.io(), std::move(socket)) {}

  void send(const std::string& line) {
    out_ += line + '\n';
    outputDue();
  }
  bool hasLine() const { return in_.find('\n') != std::string::npos; }
  std::string takeLine() {
    const size_t end = in_.find('\n');
    std::string line = in_.substr(0, end);
    in_.erase(0, end + 1);
    inputDue();
    return line;
  }
  // Bytes came, or the agent has gone, since the last call.
  const bool& moved() const { return moved_; }
  void movedIs(bool moved) { moved_ = moved; }
  bool isGone() const { return isGone_; }

 private:
  // A line has no longest length: more is read only while there is none.
  size_t inputRoom() const override { return hasLine() ? 0 : mostInput; }
  void handleInput(std::string_view bytes) override {
    in_ += bytes;
    moved_ = true;
  }
  void handleInputEnd() override { moved_ = isGone_ = true; }
  std::string_view output() override { return out_; }
  void outputTaken(size_t bytes) override { out_.erase(0, bytes); }
  void handleOutputEnd() override {}  // the agent may have sent the reason

  std::string in_;
  std::string out_;
  bool moved_ = false;
  bool isGone_ = false;
};

struct RequestClient::Answer {
  Json json;
};

template <class Read>
auto RequestClient::understood(Read read) const {
  try {
    return read();
  } catch (const Json::exception& error) {
    throw std::runtime_error(notUnderstoodText(path_, error.what()));
  }
}

RequestClient::RequestClient(EventLoop& loop, std::string path, std::chrono::seconds silence)
    : loop_(loop),
      path_(std::move(path)),
      silence_(silence),
      connection_(std::make_shared<Connection>(loop, connectToAgent(path_))) {
  connection_->start();
}

RequestClient::~RequestClient() { connection_->close(); }

void RequestClient::call(const std::string& interface, const std::string& operation) {
  send(lineOf({{"op", "call"}, {"interface", interface}, {"operation", operation}}));
  onlyAnswer();
}

Mox::U64 RequestClient::clearGroups(const std::string& interface, const std::string& group) {
  Json request{{"op", "clearGroups"}};
  if (!interface.empty()) request["interface"] = interface;
  if (!group.empty()) request["group"] = group;
  send(lineOf(request));
  const Json answer = onlyAnswer().json;
  return understood([&] { return answer.at("groups").get<Mox::U64>(); });
}

std::vector<RequestClient::Change> RequestClient::reload() {
  send(lineOf({{"op", "reload"}}));
  std::vector<Change> changes;
  for (Json json = onlyAnswer().json; !json.contains("end"); json = onlyAnswer().json) {
    changes.push_back(understood([&] {
      return Change{.json = lineOf(json),
                    .text = json.at("text").get<std::string>(),
                    .isFault = json.at("change") == "fault"};
    }));
  }
  return changes;
}

std::vector<RequestClient::Settings> RequestClient::settings(const std::string& interface) {
  Json request{{"op", "config"}};
  if (!interface.empty()) request["interface"] = interface;
  send(lineOf(request));
  std::vector<Settings> all;
  for (Json json = onlyAnswer().json; !json.contains("end"); json = onlyAnswer().json) {
    all.push_back(understood([&] {
      Settings settings{.interface = json.value("interface", ""), .settings = {}};
      for (const Json& each : json.at("settings")) {
        const Json& origin = each.at("origin");
        settings.settings.push_back({.key = each.at("key").get<std::string>(),
                                     .name = each.at("name").get<std::string>(),
                                     .json = lineOf(each.at("value")),
                                     .text = each.at("text").get<std::string>(),
                                     .origin = origin.is_null() ? "" : origin.get<std::string>()});
      }
      return settings;
    }));
  }
  return all;
}

RequestClient::PathText RequestClient::get(const std::string& path) {
  send(lineOf({{"op", "get"}, {"path", path}}));
  const Json answer = onlyAnswer().json;
  return understood([&] {
    return PathText{.json = lineOf(answer.at("value")), .lines = linesOf(answer.at("text"))};
  });
}

std::vector<std::string> RequestClient::completions(const std::string& prefix) {
  send(lineOf({{"op", "complete"}, {"prefix", prefix}}));
  const Json answer = onlyAnswer().json;
  return understood([&] { return answer.at("paths").get<std::vector<std::string>>(); });
}

std::vector<RequestClient::Handle> RequestClient::handles(const std::string& handle) {
  send(lineOf(traceRequest("traceHandles", handle)));
  const Json answer = onlyAnswer().json;
  return understood([&] {
    std::vector<Handle> all;
    for (const Json& json : answer.at("handles")) {
      all.push_back({.json = lineOf(json),
                     .name = json.at("name").get<std::string>(),
                     .level = json.at("level").get<int>()});
    }
    return all;
  });
}

void RequestClient::levelIs(const std::string& handle, int level) {
  Json json = traceRequest("traceLevel", handle);
  json["level"] = level;
  send(lineOf(json));
  onlyAnswer();
}

void RequestClient::trace(const std::string& handle) {
  send(lineOf(traceRequest("trace", handle)));
}

void RequestClient::followTraces(const std::string& handle) {
  Json json = traceRequest("trace", handle);
  json["follow"] = true;
  send(lineOf(json));
  isFollowing_ = true;
  loop_.stopAtSignals();
}

std::optional<RequestClient::TraceLine> RequestClient::nextTrace() {
  const std::optional<Answer> answer = nextAnswer();
  if (!answer || answer->json.contains("end")) return std::nullopt;
  const Json& json = answer->json;
  return understood([&] {
    TraceLine line{.json = lineOf(json)};
    if (const auto lost = json.find("lost"); lost != json.end()) {
      line.lost = lost->get<Mox::U64>();
      return line;
    }
    line.time = json.at("time").get<double>();
    line.level = json.at("level").get<int>();
    line.handle = json.at("handle").get<std::string>();
    line.text = json.at("text").get<std::string>();
    return line;
  });
}

bool RequestClient::isLineReady() const { return connection_->hasLine(); }

void RequestClient::send(const std::string& request) { connection_->send(request); }

std::optional<RequestClient::Answer> RequestClient::nextAnswer() {
  while (!connection_->hasLine()) {
    if (connection_->isGone()) throw std::runtime_error(agentGoneText());
    connection_->movedIs(false);
    const bool& moved = connection_->moved();
    if (isFollowing_ ? loop_.runUntil(moved) : loop_.runUntil(moved, silence_)) continue;
    if (loop_.isStopped()) return std::nullopt;
    throw std::runtime_error(silenceText(path_, silence_));
  }
  Json json = Json::parse(connection_->takeLine(), nullptr, false);
  if (!json.is_object()) throw std::runtime_error(notUnderstoodText(path_, "no JSON object"));
  const auto error = json.find("error");
  if (error == json.end()) return Answer{std::move(json)};
  if (json.contains("badUse")) throw BadRequest(wordsOf(*error));
  throw std::runtime_error(wordsOf(*error));
}

RequestClient::Answer RequestClient::onlyAnswer() {
  std::optional<Answer> answer = nextAnswer();
  if (!answer) throw std::runtime_error("stopped before the agent answered");
  return *std::move(answer);
}

}  // namespace Agent
