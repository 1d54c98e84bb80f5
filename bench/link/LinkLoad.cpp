// Sends IGMP reports through one interface at a given rate, as many hosts together do. All frames
// are built before the first is sent, so that only the kernel is between them.
//
//   LinkLoad eth0 --work joins --groups 10000          each group once, as fast as it goes
//   LinkLoad eth0 --work refresh --groups 1000 --rate 300000 --seconds 3
//
// Prints {"sent": N, "seconds": S} when all is sent.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <CLI/CLI.hpp>

namespace {

using Ilvo::IpAddr;
using Ilvo::U8;
using Clock = std::chrono::steady_clock;
using Frame = std::vector<U8>;

constexpr U8 isInclude = 1;
constexpr U8 isExclude = 2;
constexpr U8 toInclude = 3;
constexpr U8 toExclude = 4;
constexpr size_t floodFrames = 100000;
constexpr size_t mostSources =
    365;  // that a frame of 1,500 bytes holds in one record, with Router Alert

struct Options {
  std::string interface;
  std::string work;
  size_t groups = 1;
  size_t records = 1;
  size_t sources = 0;
  size_t firstSource = 0;
  size_t hosts = 1;
  size_t firstHost = 0;
  double rate = 0;     // frames a second; 0: no limit
  double seconds = 0;  // 0: each frame once
};

IpAddr groupAt(size_t at) { return IpAddr(0xef010000u + static_cast<unsigned>(at)); }
IpAddr sourceAt(size_t at) { return IpAddr(0xc6330001u + static_cast<unsigned>(at)); }

// The hosts share the subnet 10.77.0.0/16.
Frame frameOf(size_t host, const std::vector<Ilvo::V3Record>& records) {
  const auto number = static_cast<unsigned>(host + 1000);
  const Frame packet = Ilvo::buildV3Report(records, {.src = IpAddr(0x0a4d0000u + number)});
  Frame frame{0x01, 0x00, 0x5e, 0x00, 0x00, 0x16, 0x02, 0x00};
  for (const int shift : {24, 16, 8, 0}) frame.push_back(static_cast<U8>(number >> shift));
  frame.push_back(ETH_P_IP >> 8);
  frame.push_back(ETH_P_IP & 0xff);
  frame.insert(frame.end(), packet.begin(), packet.end());
  return frame;
}

// Each group in turn, `records` of them in a frame.
std::vector<Frame> reports(const Options& options, U8 type) {
  std::vector<IpAddr> sources;
  for (size_t s = 0; s < options.sources; ++s) sources.push_back(sourceAt(options.firstSource + s));
  std::vector<Frame> frames;
  for (size_t group = 0; group < options.groups;) {
    std::vector<Ilvo::V3Record> records;
    for (size_t r = 0; r < options.records && group < options.groups; ++r) {
      records.push_back(
          {.type = type, .group = groupAt(options.firstHost + group++), .sources = sources});
    }
    frames.push_back(frameOf(options.firstHost + frames.size() % options.hosts, records));
  }
  return frames;
}

IpAddr randomGroup(std::mt19937& random) {
  return IpAddr(0xe8000000u + (random() & 0x03ffffffu));  // 232.0.0.0 to 235.255.255.255
}

std::vector<Frame> randomGroups(const Options& options) {
  std::mt19937 random(1);
  std::vector<Frame> frames;
  for (size_t i = 0; i < floodFrames; ++i) {
    frames.push_back(frameOf(options.firstHost + i % options.hosts,
                             {{.type = toExclude, .group = randomGroup(random)}}));
  }
  return frames;
}

std::vector<Frame> randomSources(const Options& options) {
  std::mt19937 random(2);
  std::vector<Frame> frames;
  for (size_t i = 0; i < floodFrames / 5; ++i) {
    std::vector<IpAddr> sources;
    for (size_t s = 0; s < mostSources; ++s) {
      sources.emplace_back(0xc0000000u + random() % 0x1000000u);
    }
    frames.push_back(
        frameOf(options.firstHost + i % options.hosts,
                {{.type = isInclude, .group = randomGroup(random), .sources = sources}}));
  }
  return frames;
}

std::vector<Frame> framesOf(const Options& options) {
  const std::map<std::string, std::function<std::vector<Frame>()>> works{
      {"joins", [&] { return reports(options, toExclude); }},
      {"leaves", [&] { return reports(options, toInclude); }},
      {"refresh", [&] { return reports(options, options.sources == 0 ? isExclude : isInclude); }},
      {"random-groups", [&] { return randomGroups(options); }},
      {"random-sources", [&] { return randomSources(options); }},
  };
  const auto found = works.find(options.work);
  if (found == works.end()) throw std::runtime_error("no such work: " + options.work);
  return found->second();
}

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int openLink(const std::string& interface) {
  const int link = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  if (link < 0) fail("packet socket");
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
  if (bind(link, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    fail(interface.c_str());
  }
  const int direct = 1;  // no queue between this program and the device
  setsockopt(link, SOL_PACKET, PACKET_QDISC_BYPASS, &direct, sizeof(direct));
  return link;
}

// Sends frames in bursts, as many as are due by then; the number sent.
size_t sendAll(int link, std::vector<Frame>& frames, const Options& options) {
  constexpr size_t burst = 32;
  const auto wanted =
      options.seconds == 0 ? frames.size() : static_cast<size_t>(options.rate * options.seconds);
  const auto begin = Clock::now();
  size_t sent = 0;
  while (sent < wanted) {
    const std::chrono::duration<double> passed = Clock::now() - begin;
    const size_t due =
        options.rate == 0
            ? wanted
            : std::min(wanted, static_cast<size_t>(passed.count() * options.rate) + 1);
    std::array<mmsghdr, burst> messages{};
    std::array<iovec, burst> parts{};
    const size_t count = std::min(burst, due - std::min(due, sent));
    for (size_t i = 0; i < count; ++i) {
      Frame& frame = frames[(sent + i) % frames.size()];
      parts[i] = {.iov_base = frame.data(), .iov_len = frame.size()};
      messages[i].msg_hdr.msg_iov = &parts[i];
      messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int done =
        count == 0 ? 0 : sendmmsg(link, messages.data(), static_cast<unsigned>(count), 0);
    if (done < 0 && errno != ENOBUFS && errno != EAGAIN) fail("send");
    sent += static_cast<size_t>(std::max(done, 0));
  }
  return sent;
}

int run(int argc, char** argv) {
  CLI::App app("Sends IGMP reports through an interface at a given rate.");
  Options options;
  app.add_option("INTERFACE", options.interface)->required();
  app.add_option("--work", options.work, "joins, leaves, refresh, random-groups, random-sources")
      ->required();
  app.add_option("--groups", options.groups, "number of groups");
  app.add_option("--records", options.records, "records in a frame");
  app.add_option("--sources", options.sources, "sources in a record");
  app.add_option("--first-source", options.firstSource, "number of the first source");
  app.add_option("--hosts", options.hosts, "number of hosts, each with its MAC and address");
  app.add_option("--first-host", options.firstHost, "number of the first host and group");
  app.add_option("--rate", options.rate, "frames a second; 0: as fast as it goes");
  app.add_option("--seconds", options.seconds, "how long; 0: each frame once");
  CLI11_PARSE(app, argc, argv);
  std::vector<Frame> frames = framesOf(options);
  const int link = openLink(options.interface);
  const auto begin = Clock::now();
  const size_t sent = sendAll(link, frames, options);
  const std::chrono::duration<double> seconds = Clock::now() - begin;
  std::printf("{\"sent\": %zu, \"seconds\": %.6f}\n", sent, seconds.count());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "LinkLoad: %s\n", error.what());
    return 1;
  }
}
