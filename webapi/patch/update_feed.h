#pragma once

#include <optional>
#include <string>

#include "webapi/patch/update_feed_document.h"

namespace KALO::MESH::Webapi {

/// Asks the version-2 update feed for one node. One download of one try; the file that it is
/// fetched into is gone afterwards, whatever happened.
/// @param unique the node's model
/// @param build  the build that the node runs
/// @return empty when nothing is offered or the feed cannot be asked: every cause is one log line.
std::optional<FeedOffer> AskUpdateFeed(const std::string& unique, int build);

}  // namespace KALO::MESH::Webapi
