#pragma once

#include <exception>

#include "platform/webapi/api_response.h"

namespace KALO::MESH::Webapi {

/// Writes one line to the system log: source name, source line, text. The source name is one
/// constant for the whole module, because log readers search for it.
/// @param priority LOG_ERR unless a line is a note (LOG_WARNING, LOG_INFO, LOG_DEBUG)
/// @param line     __LINE__; some lines carry a fixed number that support staff search for
__attribute__((format(printf, 3, 4))) void Log(int priority, int line, const char* format, ...);

/// Ends a catch clause: one log line "<kind>: <what>" at error priority, then the error code with
/// null data. The clauses themselves stand in each method, since they differ on purpose.
void AnswerException(APIResponse& response, int line, const char* kind,
                     const std::exception& exception, int code);

}  // namespace KALO::MESH::Webapi
