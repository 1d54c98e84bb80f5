// Requests by path: the value at one, and the paths that begin with a prefix.
#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "AttrPath.h"
#include "RequestHandlers.h"

namespace Agent {

namespace {

constexpr size_t keysOfStep = 1000;

// The keys of a collection, and behind them a text with the number of those that are left out. It
// is one line, which is made in steps all the same.
class KeysAnswer final : public Answer {
 public:
  explicit KeysAnswer(KeyWalk walk) : walk_(std::move(walk)) {}

  Progress append(std::string& out) override {
    if (walking_) {
      walking_ = walk_.step();
      return Progress::more;
    }
    const std::vector<Mox::U32>& keys = walk_.keys();
    const size_t end = std::min(keys.size(), written_ + keysOfStep);
    for (; written_ < end; ++written_) add(walk_.collection().keyText(keys[written_]));
    if (written_ < keys.size()) return Progress::more;
    const size_t size = walk_.size();
    if (keys.size() == mostKeys && size > keys.size()) {
      add(fmt::format("and {} more", size - keys.size()));
    }
    out += fmt::format("{{\"value\":[{0}],\"text\":[{0}]}}\n", list_);
    return Progress::done;
  }

 private:
  void add(const std::string& text) {
    if (!list_.empty()) list_ += ',';
    list_ += jsonLine(text);
  }

  KeyWalk walk_;
  bool walking_ = true;
  size_t written_ = 0;
  std::string list_;
};

class CompletionAnswer final : public Answer {
 public:
  explicit CompletionAnswer(Completion completion) : completion_(std::move(completion)) {}

  Progress append(std::string& out) override {
    if (completion_.step()) return Progress::more;
    out += jsonLine(Json{{"paths", completion_.paths()}}) + '\n';
    return Progress::done;
  }

 private:
  Completion completion_;
};

}  // namespace

std::unique_ptr<Answer> answerGet(const RequestServices& services, const Request& request) {
  request.allow({"path"});
  try {
    PathTarget target = readPath(services.roots(), request.text("path"));
    if (auto* keys = std::get_if<KeyWalk>(&target)) {
      return std::make_unique<KeysAnswer>(std::move(*keys));
    }
    const PathContent& content = std::get<PathContent>(target);
    return lineAnswer({{"value", content.value}, {"text", content.text}});
  } catch (const PathError& error) {
    throw RequestError(RequestError::badUse, error.what());
  }
}

std::unique_ptr<Answer> answerComplete(const RequestServices& services, const Request& request) {
  request.allow({"prefix"});
  return std::make_unique<CompletionAnswer>(Completion(services.roots(), request.text("prefix")));
}

}  // namespace Agent
