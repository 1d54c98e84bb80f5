#include "Store.h"

#include <string_view>
#include <utility>

#include <Mox/ActivityClock.h>
#include <MoxBase/Fatal.h>
#include <NboAttrLog/Session.h>

namespace Sim {

using Gmp::Igmp::QuerierStatus;
using Mox::NboAttrLog::Access;
using Mox::NboAttrLog::Directory;
using Mox::NboAttrLog::Session;

// Both ends of a connection, in one process and without a socket.
class Store::Link {
 public:
  Link(const Status& original, const Status& copy) : reader_(copy) {
    directory_.entryIs("status/r", original, Access::readOnly);
  }

  // Until nothing is left to be sent.
  void move() {
    while (moveTo(reading_, serving_) || moveTo(serving_, reading_)) {
    }
  }

 private:
  class Host : public Mox::NboAttrLog::SessionHost {
   public:
    explicit Host(Status copy = {}) : copy_(std::move(copy)) {}
    void onOutput() override {}
    Mox::Ptr<Mox::EntityBase> rootIs(std::string_view, std::string_view,
                                     const Mox::Value&) override {
      return copy_;
    }

   private:
    const Status copy_;
  };

  static bool moveTo(Session& to, Session& from) {
    from.drain();
    const auto bytes = from.stream().pending();
    if (bytes.empty()) return false;
    Mox::fatalUnless(to.input(bytes), "Sim", "a copy that understands what it receives");
    from.stream().taken(bytes.size());
    return true;
  }

  Directory directory_;
  Host server_;
  Host reader_;
  Session serving_{server_, {.name = "router", .peerName = "store"}, &directory_};
  Session reading_{reader_, {.name = "store", .peerName = "router"}};
};

Store::Store() = default;
Store::~Store() = default;

void Store::follow(const Status& status) {
  if (!copy_) copy_ = Gmp::Igmp::querierStatusFactory();
  link_ = std::make_unique<Link>(status, copy_);
}

void Store::receive() {
  if (link_) link_->move();
}

void Store::lose() {
  if (!link_) return;
  link_.reset();
  lostTime_ = Mox::now();
}

void Store::forget() {
  link_.reset();
  copy_ = nullptr;
}

Store::Status Store::kept() const {
  if (!copy_) return nullptr;
  Status read = Gmp::Igmp::querierStatusFactory();
  Link(copy_, read).move();
  return read;
}

}  // namespace Sim
