#include <Web/WebRoutes.h>

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <utility>

#include "ApiAnswers.h"
#include "Metrics.h"
#include "PageFiles.h"
#include "WebTarget.h"

namespace Agent {

namespace {

using Names = std::vector<std::string>;

struct Route {
  std::span<const std::string_view> path;  // "*" is any name
  std::span<const std::string_view> keys;  // that the query may have
  WebAnswer (*answer)(const ApiCall& call);
};

template <size_t count>
using Words = std::array<std::string_view, count>;

constexpr Words<3> agentPath{"api", "v1", "agent"};
constexpr Words<3> interfacesPath{"api", "v1", "interfaces"};
constexpr Words<4> interfacePath{"api", "v1", "interfaces", "*"};
constexpr Words<5> groupsPath{"api", "v1", "interfaces", "*", "groups"};
constexpr Words<6> groupPath{"api", "v1", "interfaces", "*", "groups", "*"};
constexpr Words<3> countersPath{"api", "v1", "counters"};
constexpr Words<3> configPath{"api", "v1", "config"};
constexpr Words<3> eventsPath{"api", "v1", "events"};
constexpr Words<1> metricsPath{"metrics"};
constexpr Words<2> pageKeys{"from", "limit"};
constexpr Words<1> metricsKeys{"groups"};

constexpr std::array allRoutes{Route{agentPath, {}, agentAnswer},
                               Route{interfacesPath, {}, interfacesAnswer},
                               Route{interfacePath, {}, interfaceAnswer},
                               Route{groupsPath, pageKeys, groupsAnswer},
                               Route{groupPath, {}, groupAnswer},
                               Route{countersPath, {}, countersAnswer},
                               Route{configPath, {}, configAnswer},
                               Route{eventsPath, {}, eventsAnswer},
                               Route{metricsPath, metricsKeys, metricsAnswer}};

// The names in the place of "*"; nothing where the path is another one.
std::optional<Names> matched(const Route& route, const Names& path) {
  if (route.path.size() != path.size()) return std::nullopt;
  Names names;
  for (size_t at = 0; at < path.size(); ++at) {
    if (route.path[at] == "*") {
      names.push_back(path[at]);
    } else if (route.path[at] != path[at]) {
      return std::nullopt;
    }
  }
  return names;
}

const char* typeOf(std::string_view name) {
  if (name.ends_with(".html")) return "text/html; charset=utf-8";
  if (name.ends_with(".css")) return "text/css; charset=utf-8";
  if (name.ends_with(".js")) return "text/javascript; charset=utf-8";
  return "image/svg+xml";
}

std::optional<WebAnswer> pageAnswer(const WebTarget& target) {
  if (target.path.size() > 1 || !target.query.empty()) return std::nullopt;
  const std::string_view name =
      target.path.empty() ? "index.html" : std::string_view(target.path[0]);
  const auto found = std::ranges::find(pageFiles(), name, &PageFile::name);
  if (found == pageFiles().end()) return std::nullopt;
  return WebAnswer{.type = typeOf(name), .text = std::string(found->content)};
}

}  // namespace

WebAnswer WebRoutes::answer(const WebRequest& request) const {
  std::optional<WebTarget> target = webTarget(request.target);
  if (!target) return webError(400, "the path or its query is not well-formed");
  if (std::optional<WebAnswer> page = pageAnswer(*target)) return std::move(*page);
  for (const Route& route : allRoutes) {
    std::optional<Names> names = matched(route, target->path);
    if (!names) continue;
    for (const auto& [key, value] : target->query) {
      if (std::ranges::find(route.keys, key) != route.keys.end()) continue;
      return webError(400, "the query has an unknown key: " + key);
    }
    return route.answer({.state = state_,
                         .names = std::move(*names),
                         .query = std::move(target->query),
                         .lastEventId = request.lastEventId});
  }
  return webError(404, "nothing is served at this path; /api/v1/interfaces is a beginning");
}

}  // namespace Agent
