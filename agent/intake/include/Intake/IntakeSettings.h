// The ranges of the intake's settings, and what its options say about themselves: one rule for each
// setting of IntakeConfig and of IntakeProcessConfig.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include <Mox/TypeInfo.h>
#include <Mox/Value.h>
#include <MoxBase/Types.h>

namespace Agent {

enum class IntakeValue { flag, number, prefixes };

struct IntakeSetting {
  std::string_view attribute;
  IntakeValue value;
  Mox::U64 least;  // of a number
  Mox::U64 most;
  const char* reference;  // null for a setting that no RFC knows
  const char* help;
};

// A limit must leave room for at least one of what it counts; the upper ends are what a process of
// the usual 64 bits can hold.
inline constexpr std::array intakeSettings{
    IntakeSetting{"multicastOnly", IntakeValue::flag, 0, 1, "RFC 3376 4.1.12",
                  "whether packets must be sent to multicast addresses"},
    IntakeSetting{"refuseFragments", IntakeValue::flag, 0, 1, nullptr,
                  "whether fragments are refused"},
    IntakeSetting{"ttlOne", IntakeValue::flag, 0, 1, "RFC 3376 4", "whether the TTL must be 1"},
    IntakeSetting{"localQueries", IntakeValue::flag, 0, 1, "RFC 4541 2.1.1",
                  "whether queries must come from a subnet of the interface, or from 0.0.0.0"},
    IntakeSetting{"guardSpecificQueries", IntakeValue::flag, 0, 1, "RFC 3376 6.6.1",
                  "whether specific queries are taken from the elected querier only"},
    IntakeSetting{"limitQuerierTimes", IntakeValue::flag, 0, 1, "RFC 3376 8.5",
                  "whether the times that another querier announces are limited"},
    IntakeSetting{"reportNewQueriers", IntakeValue::flag, 0, 1, "RFC 3376 6.6.2",
                  "whether a querier that wins for the first time is an event"},
    IntakeSetting{"permittedQueriers", IntakeValue::prefixes, 0, 0, nullptr,
                  "prefixes of the routers whose queries are taken"},
    IntakeSetting{"acceptedGroups", IntakeValue::prefixes, 0, 0, nullptr,
                  "prefixes of the groups that reports may name"},
    IntakeSetting{"localReports", IntakeValue::flag, 0, 1, "RFC 3376 4.2.13",
                  "whether reports must come from a subnet of the interface, or from 0.0.0.0"},
    IntakeSetting{"requireRouterAlert", IntakeValue::flag, 0, 1, "RFC 3376 4",
                  "whether reports of versions 2 and 3 must carry Router Alert"},
    IntakeSetting{"leastReportVersion", IntakeValue::number, 1, 3, "RFC 3376 7",
                  "version below which reports are refused"},
    IntakeSetting{"guardSourceSpecific", IntakeValue::flag, 0, 1, "RFC 4604 2.2",
                  "whether groups of 232.0.0.0/8 are joined by source only"},
    IntakeSetting{"maxGroups", IntakeValue::number, 1, 16777216, nullptr,
                  "groups of the interface"},
    IntakeSetting{"maxGroupSources", IntakeValue::number, 1, 1048576, nullptr,
                  "sources of a group"},
    IntakeSetting{"maxSources", IntakeValue::number, 1, 16777216, nullptr,
                  "sources of the interface"},
    IntakeSetting{"maxGroupRecords", IntakeValue::number, 1, 8192, nullptr,
                  "records of one group in a packet"},
    IntakeSetting{"maxQueryRate", IntakeValue::number, 1, 1000000, nullptr,
                  "specific queries a second that reports may cause"},
    IntakeSetting{"maxQueryBurst", IntakeValue::number, 1, 1000000, nullptr,
                  "specific queries at once that reports may cause"},
    IntakeSetting{"listenOnly", IntakeValue::flag, 0, 1, nullptr,
                  "whether nothing is ever transmitted"},
    IntakeSetting{"maxProcessGroups", IntakeValue::number, 1, 16777216, nullptr,
                  "groups of all interfaces"},
    IntakeSetting{"maxProcessSources", IntakeValue::number, 1, 16777216, nullptr,
                  "sources of all interfaces"},
};

// The value of an attribute that has a setting, as people write it.
std::string intakeText(const IntakeSetting& setting, const Mox::Value& value);

// Null for a name that no setting has.
const IntakeSetting* intakeSetting(std::string_view attribute);

// What the setting must be, such as "must be from 1 to 8192" or "must be on or off".
std::string mustText(const IntakeSetting& setting);

// Reads a value as people write it: "on", "1000", "10.0.0.0/8,192.0.2.1", "all" for no
// restriction. Throws Mox::RangeError with what it must be.
Mox::Value intakeValueOf(const IntakeSetting& setting, std::string_view text);

// Why a value that another process writes is refused; empty when it may be set.
std::optional<std::string> refusalReason(const Mox::AttrInfo& attr, const Mox::Value& value);

}  // namespace Agent
