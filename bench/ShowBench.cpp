// The time of `igmpq show`, from the connection to the agent to the last line, with the agent's
// part.
#include <Client/AttrLogClient.h>
#include <Report/StateReport.h>
#include <Server/AttrLogServer.h>

#include <filesystem>
#include <string>

#include <unistd.h>

#include <Mox/ActivityClock.h>

#include "Budget.h"

namespace Bench {
namespace {

using Agent::StatePart;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;

class ServedGroups {
 public:
  explicit ServedGroups(size_t count) {
    for (size_t at = 0; at < count; ++at) {
      const auto group = status_->groupIs(IpAddr(0xe8000000u + static_cast<Mox::U32>(at)));
      group->filterModeIs(Gmp::Igmp::filterModeExclude);
      group->lastReporterIs(IpAddr(10, 0, 0, 11));
      group->creationTimeIs(Mox::now());
      group->expiryTimeIs(Mox::now() + 260.0);
    }
    using Mox::NboAttrLog::Access;
    server_.directory().entryIs("config/eth0", config_, Access::configurable);
    server_.directory().entryIs("status/eth0", status_, Access::readOnly);
  }
  ~ServedGroups() { std::filesystem::remove_all(folder_); }

  // The form in which `igmpq show` writes it.
  std::string shown(StatePart part, Agent::Format format) {
    Agent::AttrLogClient client(loop_, path_);
    client.fetch();
    const auto& held = client.interfaces().at("eth0");
    const Agent::InterfaceView view{
        .name = "eth0", .address = {}, .status = held.status, .isCopy = true};
    return format == Agent::Format::json ? stateJson(part, {&view, 1}, Mox::now())
                                         : stateText(part, {&view, 1}, Mox::now());
  }

 private:
  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("ShowBench." + std::to_string(getpid()));
  const std::string path_ = folder_ / "attrlog.sock";
  Agent::EventLoop loop_;
  const Mox::Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("eth0");
  const Mox::Ptr<QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  Agent::AttrLogServer server_{
      loop_.io(), {.path = path_, .stallTimeout = 30.0}, loop_.wheel(), [] {}};
};

template <Agent::Format format>
void show(benchmark::State& state) {
  const auto count = static_cast<size_t>(state.range(0));
  ServedGroups served(count);
  std::string shown;
  for (auto _ : state) {
    timed(state, [&] { shown = served.shown(StatePart::everything, format); });
  }
  if (shown.size() < 50 * count) state.SkipWithError("groups are missing");
  budget(state, 15000.0, count);  // 1.5 s for 100,000
}
BENCHMARK(show<Agent::Format::text>)
    ->Name("show/text/group")
    ->Apply(sizes<1000, 100000>)
    ->UseManualTime();
BENCHMARK(show<Agent::Format::json>)
    ->Name("show/json/group")
    ->Apply(sizes<1000, 100000>)
    ->UseManualTime();

}  // namespace
}  // namespace Bench
