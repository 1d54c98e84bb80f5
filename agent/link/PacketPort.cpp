#include <Link/PacketPort.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include <linux/if_packet.h>
#include <pcap/pcap.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Agent {

using Mox::U32;
using Mox::U64;
using Mox::U8;

namespace {

constexpr const char* filterIgmp = "ip proto 2";
constexpr int batchFrames = 64;
// The ring is cut into slots of the longest frame: only as long as the interface needs, so that
// thousands of reports at once find a place.
constexpr int ringBytes = 4 << 20;
constexpr U32 usualMtu = 1500;

int longestFrame(const Link& link) {
  return static_cast<int>(std::max(link.mtu, usualMtu) + ethernetHeaderBytes + vlanTagBytes);
}

[[noreturn]] void fail(const Link& link, const std::string& why) {
  throw std::runtime_error("cannot open interface " + link.name + ": " + why);
}

void checkActivated(const Link& link, pcap_t* handle, int status) {
  if (status >= 0) return;  // above 0 it works, with a warning
  const std::string detail = pcap_geterr(handle);
  const std::string text = pcap_statustostr(status);
  fail(link, detail.empty() || detail == text ? text : text + " (" + detail + ")");
}

}  // namespace

PacketPort::AllMulticast::AllMulticast(const Link& link)
    : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
  if (socket_ < 0) fail(link, std::generic_category().message(errno));
  packet_mreq request{};
  request.mr_ifindex = static_cast<int>(link.index);
  request.mr_type = PACKET_MR_ALLMULTI;
  if (setsockopt(socket_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &request, sizeof(request)) != 0) {
    const int why = errno;
    close(socket_);
    fail(link, "cannot receive all groups: " + std::generic_category().message(why));
  }
}

PacketPort::AllMulticast::~AllMulticast() { close(socket_); }

void PacketPort::PcapClose::operator()(pcap* handle) const { pcap_close(handle); }

PacketPort::Handle PacketPort::opened(const Link& link) {
  char text[PCAP_ERRBUF_SIZE] = "";
  Handle handle(pcap_create(link.name.c_str(), text));
  if (!handle) fail(link, text);
  pcap_t* const pcap = handle.get();
  pcap_set_snaplen(pcap, longestFrame(link));
  pcap_set_promisc(pcap, 0);
  pcap_set_immediate_mode(pcap, 1);
  pcap_set_buffer_size(pcap, ringBytes);
  checkActivated(link, pcap, pcap_activate(pcap));
  if (pcap_datalink(pcap) != DLT_EN10MB) fail(link, "its frames are not Ethernet");
  bpf_program program{};
  if (pcap_compile(pcap, &program, filterIgmp, 1, PCAP_NETMASK_UNKNOWN) != 0) {
    fail(link, pcap_geterr(pcap));
  }
  const int installed = pcap_setfilter(pcap, &program);
  pcap_freecode(&program);
  if (installed != 0) fail(link, pcap_geterr(pcap));
  if (pcap_setnonblock(pcap, 1, text) != 0) fail(link, text);
  return handle;
}

PacketPort::PacketPort(boost::asio::io_context& io, const Link& link, FrameReceiver& receiver)
    : receiver_(receiver),
      allMulticast_(link),
      handle_(opened(link)),
      watch_(io, pcap_get_selectable_fd(handle_.get()), [this] { readBatch(); }) {}

void PacketPort::readBatch() {
  int got = 1;
  for (int i = 0; i < batchFrames && got > 0; ++i) {
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    got = pcap_next_ex(handle_.get(), &header, &bytes);
    if (got > 0) receiver_.rxFrame({bytes, header->caplen});
  }
  receiver_.rxBatchEnd();
  if (got < 0) receiver_.portFailed(pcap_geterr(handle_.get()));
}

std::string PacketPort::send(std::span<const U8> frame) {
  const int sent = pcap_inject(handle_.get(), frame.data(), frame.size());
  return sent >= 0 ? std::string() : std::string(pcap_geterr(handle_.get()));
}

U64 PacketPort::dropped() {
  pcap_stat stats{};
  return pcap_stats(handle_.get(), &stats) == 0 ? stats.ps_drop : 0;
}

}  // namespace Agent
