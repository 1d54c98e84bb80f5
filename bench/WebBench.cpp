// The time of an answer of `igmpq web`, from the request to the last byte of its body, with the
// copy of an agent's state in the same process.
#include <Server/AttrLogServer.h>
#include <Web/WebRoutes.h>

#include <filesystem>
#include <string>

#include <unistd.h>

#include <Mox/ActivityClock.h>

#include "Budget.h"

namespace Bench {
namespace {

using Agent::WebBody;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;

class ServedInterfaces {
 public:
  explicit ServedInterfaces(size_t count) {
    using Mox::NboAttrLog::Access;
    Mox::NboAttrLog::Directory& directory = server_.directory();
    for (size_t at = 0; at < count; ++at) {
      const std::string name = "vlan" + std::to_string(at);
      const auto status = Gmp::Igmp::querierStatusFactory();
      status->groupIs(IpAddr(0xe8000000u))->sourceIs(IpAddr(10, 0, 0, 1));
      status->v3ReportReceivedIs(123456);
      directory.entryIs("config/" + name, Gmp::Igmp::querierConfigFactory(name), Access::readOnly);
      directory.entryIs("status/" + name, status, Access::readOnly);
      add<Agent::InterfaceState>("interface/", name);
      add<Agent::IntakeConfig>("intakeConfig/", name);
      add<Agent::IntakeStatus>("intakeStatus/", name);
    }
    state_.start();
    while (!state_.agent().isCurrent()) loop_.poll();
  }
  ~ServedInterfaces() { std::filesystem::remove_all(folder_); }

  // How many bytes the answer has; they are not kept.
  size_t answered(const char* target) {
    const Agent::WebAnswer answer = routes_.answer({.target = target});
    size_t bytes = 0;
    WebBody::Progress progress = WebBody::Progress::more;
    while (progress != WebBody::Progress::done) {
      part_.clear();
      progress = answer.body->append(part_);
      bytes += part_.size();
    }
    return bytes;
  }

 private:
  template <class Entity>
  void add(const char* folder, const std::string& name) {
    server_.directory().entryIs(folder + name, Mox::makePtr<Entity>(Mox::Name(name)),
                                Mox::NboAttrLog::Access::readOnly);
  }

  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("WebBench." + std::to_string(getpid()));
  const std::string path_ = folder_ / "attrlog.sock";
  Agent::EventLoop loop_;
  Agent::AttrLogServer server_{
      loop_.io(), {.path = path_, .stallTimeout = 30.0}, loop_.wheel(), [] {}};
  Agent::WebState state_{loop_, path_};
  const Agent::WebRoutes routes_{state_};
  std::string part_;
};

void metrics(benchmark::State& state) {
  const auto count = static_cast<size_t>(state.range(0));
  ServedInterfaces served(count);
  size_t bytes = 0;
  for (auto _ : state) {
    timed(state, [&] { bytes = served.answered("/metrics"); });
  }
  if (bytes < 2000 * count) state.SkipWithError("metrics are missing");
  budget(state, 50000.0, count);  // 50 ms for 1,000
}
BENCHMARK(metrics)->Name("web/metrics/interface")->Apply(sizes<10, 1000>)->UseManualTime();

}  // namespace
}  // namespace Bench
