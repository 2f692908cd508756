#pragma once

#include <json/value.h>

#include <string>

#include "host/webapi/module_description.h"

namespace kalo::webapid {

/// @param parameters an object
/// @return the request message that RunRequest reads in the worker.
[[nodiscard]] std::string WorkerMessage(const webapi::RowDescription& row,
                                        const Json::Value& parameters);

}  // namespace kalo::webapid
