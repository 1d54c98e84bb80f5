// The handlers of requests: one function each, in a table by operation.
#pragma once

#include <cstddef>
#include <memory>

#include <Server/RequestServices.h>

#include "Request.h"
#include "RequestAnswer.h"

namespace Agent {

// Does what is requested. Throws RequestError.
std::unique_ptr<Answer> answerTo(const RequestServices& services, const Request& request);

// The handlers of paths, see PathRequests.cpp.
std::unique_ptr<Answer> answerGet(const RequestServices& services, const Request& request);
std::unique_ptr<Answer> answerComplete(const RequestServices& services, const Request& request);

// The handlers of the configuration, see ConfigRequests.cpp.
std::unique_ptr<Answer> answerReload(const RequestServices& services, const Request& request);
std::unique_ptr<Answer> answerConfig(const RequestServices& services, const Request& request);

// The handlers of traces, see TraceRequests.cpp. Fewer clients can follow than can be connected, so
// that there is always a place for a question.
inline constexpr size_t mostFollowers = 28;
std::unique_ptr<Answer> answerTrace(const RequestServices& services, const Request& request);
std::unique_ptr<Answer> answerTraceHandles(const RequestServices& services, const Request& request);
std::unique_ptr<Answer> answerTraceLevel(const RequestServices& services, const Request& request);

}  // namespace Agent
