#include <Replay/CaptureFile.h>

#include <algorithm>
#include <array>

#include <fmt/format.h>
#include <pcap/pcap.h>

namespace Agent {

namespace {

// No clock shows later times. Beyond some thousand years, doubles are too coarse for timers.
constexpr Mox::Seconds endOfYear9999 = 253402300800.0;

Mox::Seconds timeOf(const timeval& stamp) {
  const Mox::Seconds time =
      static_cast<double>(stamp.tv_sec) + static_cast<double>(stamp.tv_usec) * 1e-9;
  return std::clamp(time, 0.0, endOfYear9999);
}

std::string linkTypeText(int linkType) {
  const char* name = pcap_datalink_val_to_name(linkType);
  return name != nullptr ? name : fmt::format("number {}", linkType);
}

// Some reasons begin with the path already.
std::string refusal(const std::string& path, const std::string& why) {
  const bool named = why.starts_with(path + ":");
  return fmt::format("cannot read capture {}{}", named ? "" : path + ": ", why);
}

}  // namespace

void CaptureFile::Closer::operator()(pcap* handle) const { pcap_close(handle); }

CaptureFile::CaptureFile(const std::string& path) {
  std::array<char, PCAP_ERRBUF_SIZE> why{};
  handle_.reset(pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO,
                                                        why.data()));
  if (!handle_) throw CaptureError(refusal(path, why.data()));
  linkType_ = pcap_datalink(handle_.get());
  if (!isKnownLinkType(linkType_)) {
    throw CaptureError(refusal(
        path, fmt::format("its link type is {}; known are Ethernet, raw IP, Linux cooked capture "
                          "and BSD loopback",
                          linkTypeText(linkType_))));
  }
}

std::optional<CaptureFile::Frame> CaptureFile::next() {
  if (!damage_.empty()) return std::nullopt;
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  const int result = pcap_next_ex(handle_.get(), &header, &bytes);
  if (result == 1) {
    return Frame{timeOf(header->ts), igmpOf(linkType_, {bytes, header->caplen}, header->len)};
  }
  if (result != PCAP_ERROR_BREAK) damage_ = pcap_geterr(handle_.get());
  return std::nullopt;
}

}  // namespace Agent
