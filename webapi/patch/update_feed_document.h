#pragma once

#include <optional>
#include <string>

namespace KALO::MESH::Webapi {

/// What the version-2 update feed offers to a node.
struct FeedOffer {
  std::string version;  ///< the offered version's text, as the feed has it; may be empty
  bool is_beta = false;
};

/// Reads a fetched document.
/// @param path the file that it was fetched into
/// @return what its first item offers; empty when it offers nothing or is no such document: every
///         cause is one log line.
std::optional<FeedOffer> ReadFeedDocument(const std::string& path);

}  // namespace KALO::MESH::Webapi
