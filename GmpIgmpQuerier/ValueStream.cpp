#include <GmpIgmpQuerier/ValueStream.h>

#include <utility>
#include <vector>

#include <Mox/AttrValue.h>
#include <Mox/Enumeration.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

using Mox::NboAttrLog::OutStream;
using Mox::NboAttrLog::Reader;

namespace {

// Takes the place of a stream where only the length is of interest.
struct ByteCount {
  size_t bytes = 0;
  void u8(U8) { bytes += 1; }
  void u16(U16) { bytes += 2; }
  void u32(U32) { bytes += 4; }
};

// A report holds records: declared before the fields of any value are walked.
template <class Out>
void put(Out& out, const IgmpReport::Records& records);
bool get(Reader& in, IgmpReport::Records& records);

template <class Out>
void put(Out& out, bool value) {
  out.u8(value ? 1 : 0);
}
template <class Out>
void put(Out& out, U8 value) {
  out.u8(value);
}
template <class Out>
void put(Out& out, U16 value) {
  out.u16(value);
}
template <class Out>
void put(Out& out, U32 value) {
  out.u32(value);
}
template <class Out>
void put(Out& out, IpAddr value) {
  out.u32(value.value());
}
template <class Out>
void put(Out& out, const IpAddrSet& set) {
  out.u32(static_cast<U32>(set.size()));
  for (const IpAddr addr : set) put(out, addr);
}
template <class Out, class V>
  requires requires { V::fields; }
void put(Out& out, const V& value) {
  V::fields.forEach([&](Mox::AttrId, const auto& field) { put(out, value.*field.member); });
}
template <class Out>
void put(Out& out, const IgmpReport::Records& records) {
  out.u32(static_cast<U32>(records.size()));
  for (const auto& [index, record] : records) {
    put(out, index);
    put(out, record);
  }
}

// Each of these reads one field; false when the bytes are none. Fields behind an absent one are
// absent too, so a count without elements ends at the first of them.
bool get(Reader& in, bool& value) {
  value = std::get<bool>(in.value(Mox::ValueKind::flag));
  return in.ok();
}
bool get(Reader& in, U8& value) {
  value = in.u8();
  return in.ok();
}
bool get(Reader& in, U16& value) {
  value = in.u16();
  return in.ok();
}
bool get(Reader& in, U32& value) {
  value = in.u32();
  return in.ok();
}
bool get(Reader& in, IpAddr& value) {
  value = IpAddr(in.u32());
  return in.ok();
}
template <Mox::Enumeration E>
bool get(Reader& in, E& value) {
  value = static_cast<E>(in.u32());
  return in.ok() && Mox::enumeratorName(value) != nullptr;
}
bool get(Reader& in, IpAddrSet& set) {
  std::vector<IpAddr> addrs;
  for (U32 left = in.u32(); left > 0; --left) {
    IpAddr addr;
    if (!get(in, addr) || (!addrs.empty() && addr <= addrs.back())) return false;
    addrs.push_back(addr);
  }
  set = IpAddrSet(std::move(addrs));
  return in.ok();
}
template <class V>
  requires requires { V::fields; }
bool get(Reader& in, V& value) {
  bool good = true;
  V::fields.forEach(
      [&](Mox::AttrId, const auto& field) { good = good && get(in, value.*field.member); });
  return good;
}
bool get(Reader& in, IgmpReport::Records& records) {
  for (U32 left = in.u32(); left > 0; --left) {
    IgmpReport::Member member{};
    if (!get(in, member.index) || !get(in, member.record)) return false;
    if (!records.empty() && member.index <= records.back().index) return false;
    records.push_back(std::move(member));
  }
  return in.ok();
}

}  // namespace

template <class V>
size_t valueBytes(const V& value) {
  ByteCount count;
  put(count, value);
  return count.bytes;
}

template <class V>
void writeValue(OutStream& out, const V& value) {
  put(out, value);
}

template <class V>
std::optional<V> readValue(Reader& in) {
  V value;
  if (!get(in, value)) return std::nullopt;
  return value;
}

template MOX_PUBLIC size_t valueBytes(const IgmpQuery&);
template MOX_PUBLIC size_t valueBytes(const IgmpReport&);
template MOX_PUBLIC size_t valueBytes(const IgmpGroupRecord&);
template MOX_PUBLIC size_t valueBytes(const GroupList&);
template MOX_PUBLIC size_t valueBytes(const RecordType&);

template MOX_PUBLIC void writeValue(OutStream&, const IgmpQuery&);
template MOX_PUBLIC void writeValue(OutStream&, const IgmpReport&);
template MOX_PUBLIC void writeValue(OutStream&, const IgmpGroupRecord&);
template MOX_PUBLIC void writeValue(OutStream&, const GroupList&);
template MOX_PUBLIC void writeValue(OutStream&, const RecordType&);

template MOX_PUBLIC std::optional<IgmpQuery> readValue(Reader&);
template MOX_PUBLIC std::optional<IgmpReport> readValue(Reader&);
template MOX_PUBLIC std::optional<IgmpGroupRecord> readValue(Reader&);
template MOX_PUBLIC std::optional<GroupList> readValue(Reader&);
template MOX_PUBLIC std::optional<RecordType> readValue(Reader&);

}  // namespace Gmp::Igmp
