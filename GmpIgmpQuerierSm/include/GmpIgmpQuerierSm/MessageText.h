// How parsed messages read in a trace: small copies that print as much as a line needs.
#pragma once

#include <string>

#include <GmpIgmpQuerier/IgmpGroupRecord.h>
#include <GmpIgmpQuerier/IgmpQuery.h>
#include <GmpIgmpQuerier/Types.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

struct IgmpQueryText {
  IpAddr group;
  U32 sources;
  U8 maxResponseCode;
  U8 qrv;
  bool s;
};
MOX_PUBLIC IgmpQueryText traceTextOf(const IgmpQuery& query);
MOX_PUBLIC void appendText(std::string& out, const IgmpQueryText& text);

struct IgmpGroupRecordText {
  IpAddr group;
  U32 sources;
  U8 type;
};
MOX_PUBLIC IgmpGroupRecordText traceTextOf(const IgmpGroupRecord& record);
MOX_PUBLIC void appendText(std::string& out, const IgmpGroupRecordText& text);

}  // namespace Gmp::Igmp
