#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/update/feed/offers.h"
#include "host/update/feed/release_list.h"

namespace kalo::feed {

/// One item of a version-2 document. Nothing vouches for what it says.
struct OfferedItem {
  std::string title;  ///< the version
  std::int32_t build = 0;
  std::string phase;
  std::string model;
};

/// @param offers newest first; empty: nothing is offered
/// @param unique the model that the offers are for
/// @return the version-2 document, ending in a line end.
[[nodiscard]] std::string VersionTwoDocument(const std::vector<const Release*>& offers,
                                             const std::string& unique);

/// Reads a document as it came from outside. Items of another form are left out.
/// @return empty if it is not a version-2 document.
[[nodiscard]] std::optional<std::vector<OfferedItem>> ReadVersionTwoDocument(
    const std::string& text);

/// Returns the releases of the signed list that the items name correctly (version, build, phase,
/// model) and that may be offered to this router. Logs each other item.
/// @param build what the router runs
[[nodiscard]] std::vector<const Release*> VouchedOffers(const std::vector<OfferedItem>& items,
                                                        const ReleaseList& list, std::int32_t build,
                                                        const Audience& audience);

}  // namespace kalo::feed
