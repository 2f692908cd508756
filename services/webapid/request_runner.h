#pragma once

#include <string>

#include "host/webapi/api_registry.h"
#include "services/webapid/fork_watch.h"

namespace kalo::webapid {

/// Serves one request message in the worker.
/// @param body the request as worker_channel.h describes it
/// @return the envelope for the client. An entry function that throws or sets no answer gives a
///         general failure and a log line. In a child that the entry function forked this never
///         returns: the child ends.
[[nodiscard]] std::string RunRequest(const webapi::ApiRegistry& registry, const ForkWatch& forks,
                                     const std::string& body);

}  // namespace kalo::webapid
