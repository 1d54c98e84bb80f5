// Parsed messages in the streams of the attribute log: IgmpQuery, IgmpReport, IgmpGroupRecord,
// GroupList and RecordType. doc/attribute-log.md describes their bytes.
//
// A value is written into the frame that is being built and must fit there with what precedes it.
//
//   if (valueBytes(query) <= Mox::NboAttrLog::longestPayload) writeValue(out, query);
//   const std::optional<IgmpQuery> query = readValue<IgmpQuery>(in);
#pragma once

#include <cstddef>
#include <optional>

#include <GmpIgmpQuerier/GroupList.h>
#include <GmpIgmpQuerier/IgmpGroupRecord.h>
#include <GmpIgmpQuerier/IgmpQuery.h>
#include <GmpIgmpQuerier/IgmpReport.h>
#include <GmpIgmpQuerier/RecordType.h>
#include <NboAttrLog/InStream.h>
#include <NboAttrLog/OutStream.h>

namespace Gmp::Igmp {

// How many bytes of a frame the value takes.
template <class V>
size_t valueBytes(const V& value);

template <class V>
void writeValue(Mox::NboAttrLog::OutStream& out, const V& value);

// The value that begins where the reader stands. Nothing when the bytes are not one: too few, a
// number that its enumeration does not have, addresses or records out of order.
template <class V>
std::optional<V> readValue(Mox::NboAttrLog::Reader& in);

}  // namespace Gmp::Igmp
