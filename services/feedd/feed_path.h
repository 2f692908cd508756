#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kalo::feedd {

/// @return the value of a query's key; empty when it is not there.
using QueryValue = std::function<std::optional<std::string>(const char* key)>;

/// @param path  of the request, decoded
/// @param query of the request
/// @return the file that answers it, below the feed's folder; empty when none can. The version-2
///         endpoint answers with the document for the asked model, build and group; whether that
///         exists is for the caller to see (see kEmptyDocument).
[[nodiscard]] std::optional<std::string> FeedPath(std::string_view path, const QueryValue& query);

/// @return whether a request's path is the version-2 endpoint.
[[nodiscard]] bool IsVersionTwo(std::string_view path);

/// What the version-2 endpoint answers with when there is no document for what is asked.
inline constexpr const char* kEmptyDocument = "v2/empty.json";

}  // namespace kalo::feedd
