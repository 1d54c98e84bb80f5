// A membership query as parsed values (RFC 3376 4.1).
#pragma once

#include <string>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/IpAddrSet.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/Export.h>

namespace Gmp::Igmp {

struct MOX_PUBLIC IgmpQuery {
  bool validPacket = false;
  IgmpVersion version = igmpVersionUnknown;
  U8 maxResponseCode = 0;  // as it stands in the message
  IpAddr groupAddress;     // 0.0.0.0 for a general query
  bool s = false;          // suppress router-side processing
  U8 qrv = 0;              // the sender's robustness, 0 when it cannot say
  U32 qqi = 0;             // the sender's query interval, seconds
  IpAddrSet source;

  // Maximum response time in seconds, decoded.
  Seconds maxResponseSeconds() const;

  // Adds to the source set; the flag is kept for the map that the set stands for and must be true.
  void newSource(IpAddr addr, bool) { source.insert(addr); }
  void sourceDelAll() { source.clear(); }

  friend bool operator==(const IgmpQuery&, const IgmpQuery&) = default;
  // True for the value of a default-constructed query.
  bool operator!() const { return *this == IgmpQuery(); }
};

// "Value('Gmp::Igmp::IgmpQuery', ** {...})", every field in its own form.
MOX_PUBLIC std::string valueToStrep(const IgmpQuery& query);

}  // namespace Gmp::Igmp
