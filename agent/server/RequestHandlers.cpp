#include "RequestHandlers.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include <Local/AgentErrors.h>
#include <Server/QuerierOperations.h>

namespace Agent {

using Gmp::Igmp::QuerierSm;

namespace {

using Handler = std::unique_ptr<Answer> (*)(const RequestServices&, const Request&);

// Null while none runs there.
Mox::Ptr<QuerierSm> querierOrNullOf(const RequestServices& services, const std::string& name) {
  const RequestServices::Queriers queriers = services.queriers();
  const auto found = queriers.find(name);
  if (found != queriers.end()) return found->second;
  std::vector<std::string> names;
  for (const auto& [known, querier] : queriers) names.push_back(known);
  throw RequestError(RequestError::badUse, noInterfaceText(name, listed(names)));
}

Mox::Ptr<QuerierSm> querierOf(const RequestServices& services, const std::string& name) {
  Mox::Ptr<QuerierSm> querier = querierOrNullOf(services, name);
  if (!querier) {
    throw RequestError(RequestError::failure,
                       fmt::format("there is no querier on {} now: the interface is down or gone; "
                                   "try again when it is up and has an IPv4 address",
                                   name));
  }
  return querier;
}

const Mox::AttrInfo& operationNamed(const std::string& name) {
  const Mox::AttrInfo* operation = querierOperation(name);
  if (operation == nullptr) {
    throw RequestError(RequestError::badUse,
                       fmt::format("a querier has no operation {}; it has: {}", name,
                                   listed(querierOperationNames())));
  }
  return *operation;
}

std::unique_ptr<Answer> answerCall(const RequestServices& services, const Request& request) {
  request.allow({"interface", "operation"});
  request.needConfigure("call operations");
  const Mox::AttrInfo& operation = operationNamed(request.text("operation"));
  services.turn();  // timers that it arms count from the real now
  const Mox::Ptr<QuerierSm> querier = querierOf(services, request.text("interface"));
  operation.call(*querier, nullptr);
  services.turn();
  return lineAnswer(Json::object());
}

std::unique_ptr<Answer> answerClearGroups(const RequestServices& services, const Request& request) {
  request.allow({"interface", "group"});
  request.needConfigure("clear groups");
  const std::string interface = request.optionalText("interface").value_or("");
  const std::optional<std::string> text = request.optionalText("group");
  const std::optional<Ilvo::IpAddr> group = text ? Ilvo::IpAddr::parse(*text) : std::nullopt;
  if (text && !group) {
    throw RequestError(RequestError::badUse,
                       fmt::format("{} is no IPv4 address such as 239.1.1.1", *text));
  }
  if (!interface.empty()) querierOrNullOf(services, interface);
  services.turn();  // what came before the request counts before it
  try {
    const size_t groups = services.clearGroups(interface, group);
    services.turn();
    return lineAnswer({{"groups", groups}});
  } catch (const std::runtime_error& error) {
    throw RequestError(RequestError::failure, error.what());
  }
}

struct Row {
  std::string_view op;
  Handler handler;
};
constexpr std::array handlers{
    Row{"get", answerGet},
    Row{"complete", answerComplete},
    Row{"call", answerCall},
    Row{"clearGroups", answerClearGroups},
    Row{"config", answerConfig},
    Row{"reload", answerReload},
    Row{"trace", answerTrace},
    Row{"traceHandles", answerTraceHandles},
    Row{"traceLevel", answerTraceLevel},
};

}  // namespace

std::unique_ptr<Answer> answerTo(const RequestServices& services, const Request& request) {
  const std::string op = request.op();
  const auto* const found = std::ranges::find(handlers, op, &Row::op);
  if (found == handlers.end()) {
    std::vector<std::string_view> known;
    known.reserve(handlers.size());
    for (const Row& row : handlers) known.push_back(row.op);
    throw RequestError(RequestError::badUse,
                       fmt::format("there is no \"{}\"; \"op\" is one of: {}", op, listed(known)));
  }
  return found->handler(services, request);
}

}  // namespace Agent
