#pragma once

#include <string>

#include "host/update/feed/release_list.h"

namespace kalo::feed {

/// @param offer  null: nothing is offered
/// @param unique the model that the offer is for
/// @return the version-2 document, ending in a line end.
[[nodiscard]] std::string VersionTwoDocument(const Release* offer, const std::string& unique);

}  // namespace kalo::feed
