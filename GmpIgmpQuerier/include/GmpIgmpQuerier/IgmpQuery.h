// A membership query as parsed values (RFC 3376 4.1).
#pragma once

#include <string>
#include <string_view>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/IpAddrSet.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/AttrTable.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

struct MOX_PUBLIC IgmpQuery {
  static constexpr const char* valueTypeName = "Gmp::Igmp::IgmpQuery";
  bool validPacket = false;
  IgmpVersion version = igmpVersionUnknown;
  U8 maxResponseCode = 0;  // as it stands in the message
  IpAddr groupAddress;     // 0.0.0.0 for a general query
  bool s = false;          // suppress router-side processing
  U8 qrv = 0;              // the sender's robustness, 0 when it exceeds 7
  U32 qqi = 0;             // the sender's query interval, seconds
  IpAddrSet source;

  // Maximum response time in seconds, decoded.
  Seconds maxResponseSeconds() const;

  // Adds to the source set, which stands for a map of addresses to flags: the flag must be true.
  void newSource(IpAddr addr, bool) { source.insert(addr); }
  void sourceDelAll() { source.clear(); }

  friend bool operator==(const IgmpQuery&, const IgmpQuery&) = default;
  // True for the value of a default-constructed query.
  bool operator!() const { return *this == IgmpQuery(); }

  static constexpr Mox::FieldTable fields{
      Mox::Field{"validPacket", &IgmpQuery::validPacket},
      Mox::Field{"version", &IgmpQuery::version},
      Mox::Field{"maxResponseCode", &IgmpQuery::maxResponseCode},
      Mox::Field{"groupAddress", &IgmpQuery::groupAddress},
      Mox::Field{"s", &IgmpQuery::s},
      Mox::Field{"qrv", &IgmpQuery::qrv},
      Mox::Field{"qqi", &IgmpQuery::qqi},
      Mox::Field{"source", &IgmpQuery::source},
  };
};

// "Value('Gmp::Igmp::IgmpQuery', ** {...})", every field in its own form.
MOX_PUBLIC std::string valueToStrep(const IgmpQuery& query);
// The same in traces and messages.
inline void appendText(std::string& out, const IgmpQuery& query) { out += valueToStrep(query); }
// Always a fatal assertion: a query holds a collection, and values with collections cannot be read
// back from text.
[[noreturn]] MOX_PUBLIC IgmpQuery IgmpQueryInstance(std::string_view text);

}  // namespace Gmp::Igmp
