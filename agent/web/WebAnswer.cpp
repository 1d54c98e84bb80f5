#include <Web/WebAnswer.h>

#include <Text/Json.h>

namespace Agent {

WebAnswer webError(unsigned status, const std::string& what) {
  JsonObject json;
  json.text("error", what);
  return {.status = status, .text = std::move(json).line() + '\n'};
}

}  // namespace Agent
