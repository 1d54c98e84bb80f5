#include "Reduce.h"

#include <algorithm>

#include "World.h"

namespace Sim {

namespace {

class Reducer {
 public:
  Reducer(Story story, Invariant broken, Canary canary)
      : story_(std::move(story)), broken_(broken), canary_(canary) {}

  Story run() {
    bool shorter = true;
    while (shorter) {
      shorter = false;
      for (size_t size = std::max<size_t>(story_.lines.size() / 2, 1); size > 0; size /= 2) {
        shorter = dropLines(size) || shorter;
      }
      shorter = dropLast(story_.hosts, 1) || shorter;
      shorter = dropLast(story_.routers, 1) || shorter;
    }
    return story_;
  }

 private:
  bool stillBreaks(const Story& story) const {
    const Findings found = World(story, canary_).run();
    return found.breach && found.breach->invariant == broken_;
  }
  bool accept(Story story) {
    if (!stillBreaks(story)) return false;
    story_ = std::move(story);
    return true;
  }

  bool dropLines(size_t size) {
    bool any = false;
    for (size_t at = 0; at < story_.lines.size();) {
      Story shorter = story_;
      const auto from = shorter.lines.begin() + static_cast<std::ptrdiff_t>(at);
      const size_t count = std::min(size, shorter.lines.size() - at);
      shorter.lines.erase(from, from + static_cast<std::ptrdiff_t>(count));
      if (accept(std::move(shorter))) {
        any = true;
      } else {
        at += size;
      }
    }
    return any;
  }

  // Lines about nodes that are not there do nothing.
  template <class T>
  bool dropLast(std::vector<T>& nodes, size_t least) {
    if (nodes.size() <= least) return false;
    const T last = nodes.back();
    nodes.pop_back();
    if (stillBreaks(story_)) return true;
    nodes.push_back(last);
    return false;
  }

  Story story_;
  const Invariant broken_;
  const Canary canary_;
};

}  // namespace

Story reduced(const Story& story, Invariant broken, Canary canary) {
  return Reducer(story, broken, canary).run();
}

}  // namespace Sim
