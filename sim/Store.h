// A store beside a router: a copy of its status, through the attribute log, that outlives it.
//
// What the router has changed arrives with `receive`. When the router ends before that, the last
// changes are lost, as those of a process that is killed before it sends them.
//
//   Store store;
//   store.follow(router.status());
//   store.receive();
//   store.lose();
//   const auto status = store.kept();  // for the router that comes back
#pragma once

#include <memory>

#include <GmpIgmpQuerier/QuerierStatus.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Sim {

class Store {
 public:
  using Status = Mox::Ptr<Gmp::Igmp::QuerierStatus>;

  Store();
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // From here on the copy becomes what this status is; until all of it has arrived it keeps what it
  // has.
  void follow(const Status& status);
  void receive();
  // The router has ended.
  void lose();
  // The store has ended, too.
  void forget();

  // Null where nothing is kept; else what a reader gets, with nothing that this store has.
  Status kept() const;
  Mox::Seconds lostTime() const { return lostTime_; }

 private:
  class Link;

  Status copy_;
  std::unique_ptr<Link> link_;  // to the router
  Mox::Seconds lostTime_ = 0.0;
};

}  // namespace Sim
