// How many specific queries reports may cause: so many a second, and so many at once after a rest.
//
//   if (!budget.take(2, config.maxQueryRate(), config.maxQueryBurst())) refuse();
#pragma once

#include <algorithm>

#include <Mox/ActivityClock.h>
#include <MoxBase/Types.h>

namespace Agent {

class QueryBudget {
 public:
  // Whether that many are there. After a rest even more than the burst are: what is asked for at
  // once would otherwise be refused for ever. A rate or burst that has changed holds from now on.
  bool has(Mox::U64 queries, Mox::U32 rate, Mox::U32 burst) {
    const Mox::Seconds now = Mox::now();
    used_ = std::max(0.0, used_ - (now - time_) * rate);
    time_ = now;
    return used_ <= 0.0 || used_ + static_cast<double>(queries) <= burst;
  }
  // Uses them up if they are there.
  bool take(Mox::U64 queries, Mox::U32 rate, Mox::U32 burst) {
    if (!has(queries, rate, burst)) return false;
    used_ += static_cast<double>(queries);
    return true;
  }
  // Of the burst, what is used up as of the last call.
  Mox::U64 used() const { return static_cast<Mox::U64>(used_); }

 private:
  double used_ = 0.0;
  Mox::Seconds time_ = 0.0;
};

}  // namespace Agent
