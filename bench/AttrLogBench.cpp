// The attribute log: the cost of a published change, the time until a new reader has everything and
// how long that keeps the agent from other work, and the memory for a reader that takes nothing.
#include <algorithm>
#include <array>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include <GmpIgmpQuerier/QuerierStatus.h>
#include <NboAttrLog/Directory.h>
#include <NboAttrLog/Session.h>
#include <NboAttrLog/SocketInSm.h>
#include <NboAttrLog/SocketOutSm.h>

#include "Budget.h"
#include "HeapBytes.h"

namespace Bench {
namespace {

using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::Ptr;
using Mox::U32;
using Mox::U8;
using Mox::NboAttrLog::Access;
using Mox::NboAttrLog::Directory;
using Mox::NboAttrLog::Moved;
using Mox::NboAttrLog::Session;
using Mox::NboAttrLog::SessionHost;
using Mox::NboAttrLog::StreamSocketOutSm;

IpAddr groupAddr(size_t number) { return IpAddr(0xe8000000u + static_cast<U32>(number)); }
IpAddr sourceAddr(size_t number) { return IpAddr(0x0a000001u + static_cast<U32>(number)); }

// An interface's status, published, with that many groups of two sources.
struct Published {
  explicit Published(size_t groups, size_t sources = 2) {
    for (size_t g = 0; g < groups; ++g) {
      const auto group = status->groupIs(groupAddr(g));
      for (size_t s = 0; s < sources; ++s) group->sourceIs(sourceAddr(s))->expiryTimeIs(260.0);
    }
    directory.entryIs("status/eth0", status, Access::readOnly);
  }
  const Ptr<QuerierStatus> status = Gmp::Igmp::querierStatusFactory();
  Directory directory;
};

struct Host : SessionHost {
  void onOutput() override { wanted = true; }
  void onCurrent() override { current = true; }
  Ptr<Mox::EntityBase> rootIs(std::string_view, std::string_view, const Mox::Value&) override {
    return copy;
  }
  bool wanted = false;
  bool current = false;
  Ptr<Mox::EntityBase> copy;
};

// The agent's side of a connection, greeted, on one end of a pair of sockets.
class Served {
 public:
  explicit Served(Published& published)
      : session_(host_, {.name = "agent", .peerName = "reader"}, &published.directory) {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds_.data()) != 0) std::abort();
    out_ = Mox::makePtr<StreamSocketOutSm>(fds_[0], session_.stream());
    Host greeter;
    Session other(greeter, {.name = "reader", .peerName = "agent"});
    session_.input(other.stream().pending());
  }
  ~Served() {
    ::close(fds_[0]);
    if (fds_[1] >= 0) ::close(fds_[1]);
  }
  int peerFd() const { return fds_[1]; }
  void hangUp() { ::shutdown(fds_[0], SHUT_RDWR); }
  Session& session() { return session_; }
  bool wanted() const { return host_.wanted; }
  // One step of the loop while output waits: one buffer.
  Moved flush() {
    host_.wanted = false;
    session_.drain();
    return out_->handleWritable();
  }

 private:
  Host host_;
  std::array<int, 2> fds_{-1, -1};
  Session session_;
  Ptr<StreamSocketOutSm> out_;
};

// Takes all bytes at once, so that the other side never waits.
class Drinker {
 public:
  explicit Drinker(int fd)
      : thread_([fd] {
          std::array<U8, 65536> bytes;
          while (::recv(fd, bytes.data(), bytes.size(), 0) > 0) {
          }
        }) {}
  ~Drinker() { thread_.join(); }

 private:
  std::thread thread_;
};

void changeUnread(benchmark::State& state) {
  Published published(1);
  U32 count = 0;
  for (auto _ : state) published.status->v2ReportReceivedIs(++count);
  budget(state, 5.0);
}
BENCHMARK(changeUnread)->Name("attrLog/change/nobodyReads");

// As the agent does it: a batch of changes, then one call for each buffer of them.
void changeRead(benchmark::State& state) {
  constexpr size_t batch = 1000;
  constexpr size_t groups = 1000;
  Published published(groups, 0);
  Served served(published);
  const Drinker drinker(served.peerFd());
  while (!served.session().allSent()) served.flush();
  std::vector<Ptr<QuerierGroupStatus>> members;
  for (size_t g = 0; g < groups; ++g) members.push_back(published.status->group(groupAddr(g)));
  double time = 1000.0;
  for (auto _ : state) {
    time += 1.0;
    timed(state, [&] {
      for (size_t change = 0; change < batch; ++change) {
        members[change % groups]->expiryTimeIs(time);
        if (!served.session().stream().sufficientBuffer()) served.flush();
      }
      while (served.flush() == Moved::blocked || !served.session().allSent()) {
      }
    });
  }
  budget(state, 120.0, batch);
  served.hangUp();
}
BENCHMARK(changeRead)->Name("attrLog/change/oneReader")->UseManualTime();

// The whole state to a new reader that builds its copy; and the longest time between two turns of
// the agent's loop.
void wholeState(benchmark::State& state) {
  const size_t groups = static_cast<size_t>(state.range(0));
  Published published(groups);
  double longest = 0.0;
  for (auto _ : state) {
    Served served(published);
    Host reader;
    const Ptr<QuerierStatus> copy = Gmp::Igmp::querierStatusFactory();
    reader.copy = copy;
    Session copying(reader, {.name = "reader", .peerName = "agent"});
    Mox::NboAttrLog::SocketInSm in(served.peerFd(), copying);
    double all = 0.0;
    while (!reader.current) {
      const double begin = threadSeconds();
      served.flush();
      const double flushed = threadSeconds();
      longest = std::max(longest, flushed - begin);
      while (in.handleReadable() == Moved::all) {
      }
      all += threadSeconds() - begin;
    }
    state.SetIterationTime(all);
    if (copy->group().size() != groups) state.SkipWithError("groups are missing");
  }
  state.counters["longest_step_ms"] = longest * 1e3;
  budget(state, 10000.0, groups);  // 1 s for 100,000
}
BENCHMARK(wholeState)
    ->Name("attrLog/wholeState/group")
    ->Apply(sizes<1000, 100000>)
    ->UseManualTime();

// Everything changes while a reader takes nothing: the memory that the agent needs for it, beyond
// the connection itself.
void stalledMemory(benchmark::State& state, bool sources) {
  const size_t groups = static_cast<size_t>(state.range(0));
  double bytes = 0.0;
  for (auto _ : state) {
    Published published(groups);
    const size_t before = heapBytes();
    Served served(published);
    const size_t connected = heapBytes();
    {
      Host reader;
      Session copying(reader, {.name = "reader", .peerName = "agent"});
      Mox::NboAttrLog::SocketInSm in(served.peerFd(), copying);
      while (!reader.current) {
        served.flush();
        while (in.handleReadable() == Moved::all) {
        }
      }
    }
    while (served.session().stream().sufficientBuffer()) published.status->joinsInc(1);
    for (size_t g = 0; g < groups; ++g) {
      const auto group = published.status->group(groupAddr(g));
      group->expiryTimeIs(300.0);
      for (size_t s = 0; sources && s < 2; ++s) group->source(sourceAddr(s))->expiryTimeIs(300.0);
    }
    const size_t dirty = groups * (sources ? 3 : 1);
    bytes = static_cast<double>(heapBytes() - connected) / static_cast<double>(dirty);
    state.counters["connection_bytes"] = static_cast<double>(connected - before);
  }
  state.counters["bytes_per_item"] = bytes;
  state.counters["budget_bytes"] = 64.0;
}
BENCHMARK_CAPTURE(stalledMemory, groups, false)
    ->Name("attrLog/memory/dirtyGroup")
    ->Apply(sizes<1000, 100000>)
    ->Iterations(1);
BENCHMARK_CAPTURE(stalledMemory, sources, true)
    ->Name("attrLog/memory/dirtySource")
    ->Apply(sizes<1000, 100000>)
    ->Iterations(1);

}  // namespace
}  // namespace Bench
