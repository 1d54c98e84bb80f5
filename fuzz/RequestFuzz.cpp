// Any bytes, in parts of any size, are safe to receive on the request socket, from a client that
// reads its answers as slowly as it likes. The answers are JSON objects, one on each line, in
// chunks of bounded size. An error that ends the session is the last of them, and nothing is done
// after it. A client without the right to configure changes nothing.
//
// The first byte of the input holds the right of the client (0x80: it may configure), whether a
// trace is recorded between two parts (0x40), and the size of the parts. After each part, the
// client takes one chunk of its answers.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <Mox/Trace.h>
#include <RequestSession.h>

#include "Property.h"
#include "WheelInPlace.h"

namespace {

using Agent::RequestSession;
using Fuzz::property;
using Gmp::Igmp::QuerierSm;
using Rights = Agent::Request::Rights;

// A line is added to a chunk while that has room, so the lines of one record can exceed it.
constexpr size_t longestTrace = 4096;
// Many requests can each return the whole ring, or all objects, which takes time and tries nothing
// new.
constexpr size_t mostChunks = 24;

Mox::TraceHandle& ownTrace() {
  static Mox::TraceHandle& handle = Mox::TraceHandle::named("Fuzz");
  return handle;
}

class World {
 public:
  explicit World(Rights rights)
      : rights_(rights),
        services_{.queriers =
                      [this] {
                        return Agent::RequestServices::Queriers{{"eth0", querier_}, {"eth1", {}}};
                      },
                  .roots =
                      [this] {
                        return Agent::ObjectRoots{{"status/eth0", querier_->querierStatus()},
                                                  {"querierSm/eth0", querier_}};
                      },
                  .turn =
                      [this] {
                        property(rights_ == Rights::configure,
                                 "a client that may only read changes nothing");
                        property(!gone_, "nothing is done after the end");
                        wheel_->turn(Mox::now());
                      },
                  .clearGroups =
                      [this](const std::string&, std::optional<Ilvo::IpAddr>) {
                        property(rights_ == Rights::configure,
                                 "a client that may only read ends no group");
                        return size_t{0};
                      },
                  .config = {.reload = [this] { return reloaded(); },
                             .interfaces =
                                 [] {
                                   return std::vector<std::string>{"eth0", "eth1"};
                                 },
                             .settings = settingsOf}},
        session_(services_, rights) {}
  ~World() {
    for (Mox::TraceHandle* handle : Mox::TraceHandle::all()) {
      property(
          rights_ == Rights::configure || handle->ringLevel() == Mox::TraceHandle::defaultRingLevel,
          "a client that may only read sets no level");
      property(handle->ringLevel() >= -1 && handle->ringLevel() <= 9, "a level is a level");
      handle->ringLevelIs(Mox::TraceHandle::defaultRingLevel);
    }
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  RequestSession& session() { return session_; }
  bool readAll() const { return chunks_ < mostChunks; }
  // Takes one chunk of the answers; false when there is none, or the client takes no more.
  bool readChunk() {
    if (chunks_ == mostChunks) return false;
    const std::string_view out = session_.out();
    if (out.empty()) {
      ++chunks_;
      return session_.isWorking();
    }
    property(out.size() <= Agent::Answer::partBytes + longestTrace, "a chunk is bounded");
    property(!gone_, "nothing follows an error that ends the session");
    property(out.back() == '\n', "answers are whole lines");
    for (size_t begin = 0; begin < out.size();) {
      const size_t end = out.find('\n', begin);
      const auto json = Agent::Json::parse(out.substr(begin, end - begin), nullptr, false);
      property(json.is_object(), "an answer is a JSON object");
      begin = end + 1;
    }
    session_.taken(out.size());
    ++chunks_;
    gone_ = session_.ended();
    return true;
  }

 private:
  // Paths of files are bytes, and need not be UTF-8.
  std::vector<Agent::ConfigChange> reloaded() const {
    property(rights_ == Rights::configure, "a client that may only read has nothing read again");
    if (chunks_ == 0) throw std::runtime_error("no file is in use: \xff");
    return {{.kind = Agent::ConfigChange::fault, .origin = "\xff:7", .what = "no number"},
            {.kind = Agent::ConfigChange::added, .interface = "eth1"},
            {.kind = Agent::ConfigChange::changed,
             .interface = "eth0",
             .setting = "robustness",
             .before = "2",
             .after = "3",
             .origin = "\xff:9"}};
  }
  // The other interface has gone meanwhile.
  static std::optional<std::vector<Agent::ShownSetting>> settingsOf(const std::string& interface) {
    if (interface == "eth1") return std::nullopt;
    return {{{.key = "robustness", .name = "robustness", .value = 2, .text = "2", .origin = ""},
             {.key = "user", .name = "user", .value = "", .text = "", .origin = "\xff:1"}}};
  }

  const Rights rights_;
  const Fuzz::WheelInPlace wheel_{Mox::now()};
  const Mox::Ptr<QuerierSm> querier_ = Gmp::Igmp::querierSmFactory(
      Gmp::Igmp::querierConfigFactory("eth0"), Gmp::Igmp::querierStatusFactory(),
      Ilvo::IpAddr(10, 0, 0, 2), 1500, 0, wheel_.ptr(), wheel_.ptr(), wheel_.ptr(), false);
  const Agent::RequestServices services_;
  RequestSession session_;
  bool gone_ = false;
  size_t chunks_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  Mox::virtualTimeIs(1000.0);
  Mox::eventLogSinkIs([](const Mox::EventLogEntry&) {});
  ownTrace();
  Mox::brevlog().clear();
  const size_t partBytes = 1 + (data[0] & 0x3fu);
  std::string_view sent(reinterpret_cast<const char*>(data) + 1, size - 1);
  World world((data[0] & 0x80u) != 0 ? Rights::configure : Rights::read);
  while (!sent.empty() && world.session().room() != 0) {
    const std::string_view part = sent.substr(0, std::min(partBytes, world.session().room()));
    world.session().in(part);
    sent.remove_prefix(part.size());
    property(world.session().room() <= RequestSession::longestLine + 1,
             "the room for a line is bounded");
    if ((data[0] & 0x40u) != 0) Mox::trace<3>(ownTrace(), "bytes left ", sent.size());
    world.readChunk();
  }
  world.session().inEnd();
  while (world.readChunk()) {
  }
  property(!world.readAll() || world.session().ended(), "the end of the input ends the session");
  return 0;
}
