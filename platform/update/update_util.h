#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/update/response.h"
#include "platform/update/update_node.h"

namespace KALO::MESH::SDK::Upgrade {

class UpdateUtil {
 public:
  /// @return true while the automatic updater runs.
  static bool IsAutoUpdating();

  /// Calls one web API without parameters on every node of the list.
  /// @return the answers by node id; a node that could not be reached has an answer that is not
  ///         valid.
  /// @throws std::exception when the mesh's credentials cannot be loaded.
  static std::map<std::int32_t, Response> SendWebAPIs(const std::vector<UpdateNode>& nodes,
                                                      const std::string& api,
                                                      const std::string& method, int version);

  /// Notifies the administrators how a download ended. After a success the download's progress file
  /// no longer says "downloading": it becomes "finished".
  /// @param success whether it succeeded
  /// @param is_auto whether the automatic updater ran it
  /// @param version what was downloaded; may be empty
  static void SendNotification(bool success, bool is_auto, const std::string& version);

  /// Empties a folder and keeps it. Never follows a symbolic link, never leaves the file system.
  /// @return false on failure; a folder that does not exist is empty.
  static bool CleanFolder(const char* folder);

  /// Reads a file of root's; links and other users' files are refused.
  /// @param root receives the document; null when the result is false
  /// @return whether the file could be read as one JSON document.
  static bool ParseJsonRootFromFile(const std::string& path, Json::Value& root);
};

}  // namespace KALO::MESH::SDK::Upgrade
