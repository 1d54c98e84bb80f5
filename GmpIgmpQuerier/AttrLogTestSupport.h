// A serving and a copying session with a line between them that can be held up at any byte.
#pragma once

#include <algorithm>
#include <limits>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <NboAttrLog/Session.h>

namespace Gmp::Igmp {

using Mox::NboAttrLog::Access;
using Mox::NboAttrLog::Directory;
using Mox::NboAttrLog::Rights;
using Mox::NboAttrLog::Session;
using Mox::NboAttrLog::SessionHost;

// Every value that a peer should have of an entity and of those below it, as lines of text.
inline void describe(const Mox::EntityBase& entity, const std::string& path, std::string& out) {
  for (const Mox::AttrInfo& attr : entity.type().attrs) {
    if (attr.get == nullptr) continue;
    const Mox::Value value = attr.get(entity);
    out += path + "." + attr.name + " ";
    if (const auto* flag = std::get_if<bool>(&value)) out += *flag ? "true" : "false";
    if (const auto* number = std::get_if<Mox::U64>(&value)) out += std::to_string(*number);
    if (const auto* seconds = std::get_if<double>(&value)) out += std::to_string(*seconds);
    if (const auto* text = std::get_if<std::string>(&value)) out += *text;
    out += "\n";
  }
  for (const Mox::CollectionInfo& collection : entity.type().collections) {
    std::vector<U32> keys = collection.keys(entity);
    std::sort(keys.begin(), keys.end());
    for (const U32 key : keys) {
      describe(*collection.find(entity, key), path + "/" + std::to_string(key), out);
    }
  }
}

inline std::string described(const Mox::EntityBase& entity) {
  std::string out;
  describe(entity, "", out);
  return out;
}

// The side that keeps copies; they outlive connections.
class CopyHost final : public SessionHost {
 public:
  void onOutput() override {}
  Ptr<Mox::EntityBase> rootIs(std::string_view path, std::string_view type,
                              const Mox::Value& key) override {
    auto& copy = copies_[std::string(path)];
    if (copy == nullptr && type == QuerierStatus::entityTypeName) copy = querierStatusFactory();
    const auto* name = std::get_if<std::string>(&key);
    if (copy == nullptr && type == QuerierConfig::entityTypeName && name != nullptr) {
      copy = querierConfigFactory(*name);
    }
    return copy;
  }
  void rootDel(std::string_view path) override { copies_.erase(std::string(path)); }
  void onCurrent() override { current_ = true; }
  void onAnswer(U32 token) override { answer_ = token; }

  template <class E>
  Ptr<E> copy(const std::string& path) const {
    const auto found = copies_.find(path);
    return found == copies_.end() ? nullptr : static_cast<E*>(found->second.get());
  }
  bool current() const { return current_; }
  void currentDel() { current_ = false; }
  U32 answer() const { return answer_; }

 private:
  std::map<std::string, Ptr<Mox::EntityBase>> copies_;
  bool current_ = false;
  U32 answer_ = 0;
};

class ServeHost final : public SessionHost {
 public:
  void onOutput() override {}
};

// One connection between a directory and copies.
class AttrLogLine {
 public:
  static constexpr size_t everything = std::numeric_limits<size_t>::max();

  AttrLogLine(Directory& directory, CopyHost& copies, Rights rights = Rights::read,
              size_t bufferBytes = Mox::NboAttrLog::OutStream::leastCapacity)
      : server_(serveHost_,
                {.name = "agent", .peerName = "copy", .rights = rights, .bufferBytes = bufferBytes},
                &directory),
        copy_(copies, {.name = "copy",
                       .peerName = "agent",
                       .rights = Rights::read,
                       .bufferBytes = bufferBytes}) {}

  Session& server() { return server_; }
  Session& copy() { return copy_; }

  // Carries at most so many bytes each way; the number that was carried.
  size_t carry(size_t most) { return carry(server_, copy_, most) + carry(copy_, server_, most); }
  // Until nothing is left on either side.
  void settle() {
    while (carry(everything) != 0 ||
           (server_.fault().empty() && copy_.fault().empty() && !server_.allSent())) {
    }
  }

 private:
  static size_t carry(Session& from, Session& to, size_t most) {
    from.drain();
    const auto waiting = from.stream().pending();
    const size_t bytes = std::min(most, waiting.size());
    const std::vector<Mox::U8> taken(waiting.begin(),
                                     waiting.begin() + static_cast<std::ptrdiff_t>(bytes));
    from.stream().taken(bytes);
    if (bytes != 0) to.input(taken);
    return bytes;
  }

  ServeHost serveHost_;
  Session server_;
  Session copy_;
};

}  // namespace Gmp::Igmp
