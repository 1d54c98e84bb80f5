// Any bytes are safe to apply as messages of the kernel. The table names the links that a message
// changed: every other link is as it was before, so that every change is notified.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <Link/LinkTable.h>

#include "Property.h"

namespace {

using Agent::Link;
using Agent::LinkTable;
using Fuzz::property;
using Mox::U32;
using Mox::U64;

// Aligned as a buffer that the kernel fills.
class Datagram {
 public:
  explicit Datagram(std::span<const std::uint8_t> bytes)
      : words_(bytes.size() / sizeof(U64) + 1), size_(bytes.size()) {
    std::memcpy(words_.data(), bytes.data(), bytes.size());
  }
  std::span<const std::byte> bytes() const { return std::as_bytes(std::span(words_)).first(size_); }

 private:
  std::vector<U64> words_;
  std::size_t size_;
};

const Link* linkOf(const LinkTable& table, U32 index) {
  const auto found = table.links().find(index);
  return found == table.links().end() ? nullptr : &found->second;
}

bool isSame(const Link* link, const Link* other) {
  if (link == nullptr || other == nullptr) return link == other;
  return *link == *other;
}

void checkFormer(const LinkTable& before, const LinkTable& after, const LinkTable::Former& former) {
  for (const auto& [index, old] : former) {
    property(isSame(old ? &*old : nullptr, linkOf(before, index)), "former links are as they were");
  }
  for (const LinkTable* table : {&before, &after}) {
    for (const auto& [index, link] : table->links()) {
      property(link.index == index && index != 0, "links are found by their index");
      const bool same = isSame(linkOf(before, index), linkOf(after, index));
      property(same || former.contains(index), "a link that changes is among the former ones");
    }
  }
}

}  // namespace

// The first byte is the length of the first datagram, in 16 bytes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::span<const std::uint8_t> input(data + 1, size - 1);
  const std::size_t split = std::min<std::size_t>(std::size_t{data[0]} * 16, input.size());
  LinkTable table;
  for (const auto part : {input.first(split), input.subspan(split)}) {
    const Datagram datagram(part);
    const LinkTable before = table;
    LinkTable::Former former;
    table.apply(datagram.bytes(), former);
    checkFormer(before, table, former);
    for (const std::string& name : table.names()) {
      property(table.find(name) != nullptr, "a link is found by its name");
    }
  }
  return 0;
}
