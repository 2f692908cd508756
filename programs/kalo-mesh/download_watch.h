#pragma once

#include <string>

#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/bars.h"

namespace kalo::cli {

/// Starts a download of what the last check found.
/// @param promotion that was a promotion
/// @throws as ApiClient::Call
void StartDownload(ApiClient& client, bool promotion);

/// @return whether this version was downloaded before, and is ready on the nodes.
/// @throws as ApiClient::Call
[[nodiscard]] bool StandsReady(ApiClient& client, const std::string& version, bool is_auto);

/// Waits until a running download has been fetched and handed to every node, with a bar.
/// @param is_auto the caller is the automatic update, which others see as a busy mesh
/// @return the version that the nodes have now.
/// @throws Failure when it failed or was cancelled.
[[nodiscard]] std::string FollowDownload(ApiClient& client, BarBoard& board, bool is_auto);

}  // namespace kalo::cli
