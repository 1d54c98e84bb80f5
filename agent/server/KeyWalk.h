// The lowest keys of a collection, collected in steps, so that a million members do not keep the
// loop from packets. Members may come and go between two steps: each that is there all the time
// counts.
//
//   KeyWalk walk(status, *status->type().collection("group"), 1000);
//   while (walk.step()) yield();
//   for (const Mox::U32 key : walk.keys()) ...
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include <Mox/Entity.h>
#include <Mox/Object.h>
#include <Mox/TypeInfo.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Agent {

class KeyWalk {
 public:
  using Fits = std::function<bool(Mox::U32 key)>;  // which keys to collect; all if empty

  KeyWalk(Mox::Ptr<const Mox::Object> object, const Mox::CollectionInfo& collection, size_t most,
          Fits fits = {})
      : object_(std::move(object)), collection_(collection), most_(most), fits_(std::move(fits)) {}

  // False when all members were looked at that can be among the lowest.
  bool step();
  // In ascending order, once step() was false.
  const std::vector<Mox::U32>& keys() const { return keys_; }
  const Mox::CollectionInfo& collection() const { return collection_; }
  size_t size() const { return collection_.size(entity()); }

 private:
  const Mox::EntityBase& entity() const { return static_cast<const Mox::EntityBase&>(*object_); }
  void add(Mox::U32 key);

  const Mox::Ptr<const Mox::Object> object_;
  const Mox::CollectionInfo& collection_;
  const size_t most_;
  const Fits fits_;
  Mox::U64 bookmark_ = 0;
  std::vector<Mox::U32> keys_;  // a heap with the greatest first, unless the collection is ordered
};

}  // namespace Agent
