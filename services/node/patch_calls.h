#pragma once

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"

/// The calls with which node 0 puts a patch on this node, starts its installation and follows it.
/// None keeps state in memory, none takes the mesh's patch lock: that is node 0's, and node 0 calls
/// its own node side while it holds it.
namespace kalo::node {

/// `KALO.Core.Upgrade.Patch` `upload`: verifies the handed-in patch in full and stages it.
void UploadPatch(const KALO::APIRequest& request, KALO::APIResponse& response);

/// `KALO.Core.Upgrade.Patch` `clean`: drops the staged patch and the full patch's locator, nothing
/// else.
void CleanPatch(const KALO::APIRequest& request, KALO::APIResponse& response);

/// `KALO.Core.Upgrade` `start`: starts the installer.
void StartInstall(const KALO::APIRequest& request, KALO::APIResponse& response);

}  // namespace kalo::node
