#include "webapi/upgrade/full_patch_locator.h"

#include "platform/core/file.h"
#include "platform/update/update_util.h"

namespace KALO::MESH::Webapi {

std::optional<std::string> LocatedPatch(const std::string& locator) {
  if (KLIBCFileExist(locator.c_str()) == 0) return std::nullopt;
  Json::Value document;
  if (!SDK::Upgrade::UpdateUtil::ParseJsonRootFromFile(locator, document) || !document.isObject() ||
      !document["patchPath"].isString()) {
    return std::nullopt;
  }
  std::string path = document["patchPath"].asString();
  if (KLIBCFileExist(path.c_str()) == 0) return std::nullopt;
  return path;
}

}  // namespace KALO::MESH::Webapi
