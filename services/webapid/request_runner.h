#pragma once

#include <string>

#include "host/webapi/api_registry.h"
#include "services/webapid/fork_watch.h"

namespace kalo::webapid {

struct RunResult {
  std::string envelope;  ///< for the client
  /// No module had the row that the server sent here. It may be that a module could not be read
  /// when this worker started; another one may have more luck.
  bool row_missing = false;
};

/// Serves one request message in the worker. An entry function that throws or sets no answer gives
/// a general failure and a log line. In a child that the entry function forked this never returns:
/// the child ends.
/// @param body the request as worker_channel.h describes it
[[nodiscard]] RunResult RunRequest(const webapi::ApiRegistry& registry, const ForkWatch& forks,
                                   const std::string& body);

}  // namespace kalo::webapid
