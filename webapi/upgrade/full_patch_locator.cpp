#include "webapi/upgrade/full_patch_locator.h"

#include "platform/core/file.h"
#include "platform/update/update_util.h"

namespace KALO::MESH::Webapi {
namespace {

bool Exists(const std::string& path) {
  return KLIBCFileExist(path.c_str()) != 0;
}

}  // namespace

std::optional<std::string> LocatedPatch(const std::string& locator) {
  if (!Exists(locator)) return std::nullopt;
  Json::Value document;
  if (!SDK::Upgrade::UpdateUtil::ParseJsonRootFromFile(locator, document) || !document.isObject() ||
      !document["patchPath"].isString()) {
    return std::nullopt;
  }
  std::string path = document["patchPath"].asString();
  if (!Exists(path)) return std::nullopt;
  return path;
}

}  // namespace KALO::MESH::Webapi
