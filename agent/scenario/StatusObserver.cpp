#include "StatusObserver.h"

#include <cstring>
#include <utility>

#include "AttrValues.h"

namespace Agent::Scenario {

using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierSourceStatus;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::AttrId;
using Mox::Ptr;
using Mox::U32;

namespace {

struct Writer {
  std::string interface;
  Observations& observations;
};

Observations& begin(const Writer& writer, const char* entity, const std::string& key,
                    const char* attr) {
  return writer.observations.begin("change")
      .text("interface", writer.interface)
      .plain("entity", entity)
      .plain("key", key)
      .plain("attr", attr);
}

template <class E>
void writeAttr(const Writer& writer, const E& entity, const char* type, const std::string& key,
               AttrId id) {
  E::attributes.forEach([&](AttrId rowId, const auto& row) {
    if constexpr (requires { jsonOf(entity.*row.member); }) {
      if (rowId == id) {
        begin(writer, type, key, row.name).json("value", jsonOf(entity.*row.member)).end();
      }
    }
  });
}

void writeMember(const Writer& writer, const char* type, const std::string& key, const char* attr,
                 IpAddr member, bool added) {
  Json value;
  value[added ? "add" : "del"] = member.stringValue();
  begin(writer, type, key, attr).json("value", value).end();
}

}  // namespace

// Watches by identifier: every attribute of the table is seen, also one that is added to it later.
class StatusObserver::SourceWatch final : public QuerierSourceStatus::NotifieeConst {
 public:
  SourceWatch(const Writer& writer, IpAddr group, const Ptr<QuerierSourceStatus>& status)
      : NotifieeConst(status),
        writer_(writer),
        key_(group.stringValue() + " " + status->sourceAddr().stringValue()) {}
  void onAttr(AttrId id) override {
    writeAttr(writer_, *notifier(), "QuerierSourceStatus", key_, id);
  }

 private:
  const Writer& writer_;
  const std::string key_;
};

class StatusObserver::GroupWatch final : public QuerierGroupStatus::NotifieeConst {
 public:
  GroupWatch(const Writer& writer, const Ptr<QuerierGroupStatus>& status)
      : NotifieeConst(status), writer_(writer), key_(status->groupAddr().stringValue()) {}
  void onAttr(AttrId id) override {
    writeAttr(writer_, *notifier(), "QuerierGroupStatus", key_, id);
  }
  void onMember(AttrId, U32 key) override {
    const IpAddr addr(key);
    const Ptr<QuerierSourceStatus> source = notifier()->source(addr);
    writeMember(writer_, "QuerierGroupStatus", key_, "source", addr, static_cast<bool>(source));
    sources_.erase(addr);
    if (source) {
      sources_.emplace(addr,
                       std::make_unique<SourceWatch>(writer_, notifier()->groupAddr(), source));
    }
  }

 private:
  const Writer& writer_;
  const std::string key_;
  std::map<IpAddr, std::unique_ptr<SourceWatch>> sources_;
};

class StatusObserver::StatusWatch final : public QuerierStatus::NotifieeConst {
 public:
  StatusWatch(Writer writer, const Ptr<QuerierStatus>& status)
      : NotifieeConst(status), writer_(std::move(writer)) {}
  void onAttr(AttrId id) override { writeAttr(writer_, *notifier(), "QuerierStatus", "", id); }
  void onMember(AttrId, U32 key) override {
    const IpAddr addr(key);
    const Ptr<QuerierGroupStatus> group = notifier()->group(addr);
    writeMember(writer_, "QuerierStatus", "", "group", addr, static_cast<bool>(group));
    groups_.erase(addr);
    if (group) groups_.emplace(addr, std::make_unique<GroupWatch>(writer_, group));
  }

 private:
  const Writer writer_;
  std::map<IpAddr, std::unique_ptr<GroupWatch>> groups_;
};

StatusObserver::StatusObserver(std::string interface, Ptr<QuerierStatus> status,
                               Observations& observations)
    : watch_(std::make_unique<StatusWatch>(Writer{std::move(interface), observations}, status)) {}

StatusObserver::~StatusObserver() = default;

}  // namespace Agent::Scenario
