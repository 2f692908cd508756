#pragma once

#include <optional>
#include <string>

namespace KALO::MESH::Webapi {

/// What the version-2 update feed offers to a node.
struct FeedOffer {
  std::string type;     ///< update kind word, always "hbx"
  std::string version;  ///< the offered version's text, as the feed has it; may be empty
  bool is_beta = false;
};

/// Asks the version-2 update feed for one node. One download of one try; the file that it is
/// fetched into is gone afterwards, whatever happened.
/// @param unique the node's model
/// @param build  the build that the node runs
/// @return empty when nothing is offered or the feed cannot be asked: every cause is one log line.
std::optional<FeedOffer> AskUpdateFeed(const std::string& unique, int build);

}  // namespace KALO::MESH::Webapi
