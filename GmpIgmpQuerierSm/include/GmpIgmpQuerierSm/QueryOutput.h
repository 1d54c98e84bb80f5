// Hands out each query that a querier publishes, in order, before it is counted in the status.
//
// It exists before its querier and is given to the factory, since a querier on a status that is
// querier already publishes a general query inside its constructor. Its handler may do anything:
// hand in packets, publish more queries, release this output or the querier. An output keeps its
// querier alive until it is released or destroyed, and serves one querier at a time.
//
//   QueryOutput output([&](const PublishedQuery& query) { transmit(query); });
//   querier = querierSmFactory(config, status, ipAddr, 1500, 0, wheel, wheel, wheel, false,
//                              &output);
//   ...
//   output.release();
//   querier = nullptr;
#pragma once

#include <functional>
#include <utility>

#include <GmpIgmpQuerier/Types.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Ilvo/Pkt.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

struct PublishedQuery {
  IpAddr src;              // the querier's own address
  IpAddr dstGroup;         // 0.0.0.0: a general query, for all systems
  Ptr<Ilvo::Pkt> message;  // the IGMP message alone; never null
};

class MOX_PUBLIC QueryOutput final : public QuerierSm::NotifieeConst {
 public:
  using Handler = std::function<void(const PublishedQuery&)>;

  // Hands out nothing until a querier is made with it.
  explicit QueryOutput(Handler handler) : NotifieeConst(nullptr), handler_(std::move(handler)) {}

  // Hands out nothing more, and no longer keeps the querier alive.
  void release() { notifierIs(nullptr); }

  void onWritableCount() override;

 private:
  const Handler handler_;
};

}  // namespace Gmp::Igmp
