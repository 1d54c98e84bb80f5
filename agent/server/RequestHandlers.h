// The handlers of requests: one function each, in a table by operation.
#pragma once

#include <memory>

#include <Server/RequestServices.h>

#include "Request.h"
#include "RequestAnswer.h"

namespace Agent {

// Does what is requested. Throws RequestError.
std::unique_ptr<Answer> answerTo(const RequestServices& services, const Request& request);

// The handlers of traces, see TraceRequests.cpp.
std::unique_ptr<Answer> answerTrace(const RequestServices& services, const Request& request);
std::unique_ptr<Answer> answerTraceHandles(const RequestServices& services, const Request& request);
std::unique_ptr<Answer> answerTraceLevel(const RequestServices& services, const Request& request);

}  // namespace Agent
