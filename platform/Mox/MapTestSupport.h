// Values for the tests of the collections, and how they are varied.
#pragma once

#include <functional>
#include <memory>
#include <random>
#include <utility>

#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Mox {

// The same numbers for the same seed.
struct Random {
  explicit Random(U32 seed) : engine(seed) {}
  U32 operator()() { return static_cast<U32>(engine()); }
  std::mt19937 engine;
};

struct ModelValue {
  U32 number = 0;
  std::shared_ptr<int> token;  // one for each living member
};

// Calls its function when it is destroyed.
struct AtEnd final : RefCounted {
  explicit AtEnd(std::function<void()> then) : then_(std::move(then)) {}
  ~AtEnd() override { then_(); }
  const std::function<void()> then_;
};

}  // namespace Mox
