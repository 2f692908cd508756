// The file that names the full patch.

#include <sys/stat.h>

#include "fuzz/fuzz_target.h"
#include "host/core/strict_json.h"
#include "platform/update/update_util.h"
#include "webapi/upgrade/full_patch_locator.h"

namespace {

using KALO::MESH::Webapi::LocatedPatch;
using namespace kalo::fuzz;

constexpr const char* kPatch = "/tmp/fuzz-patch";

bool IsThere(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

// What the file names may be there or not, whatever a mutated path hits.
void CheckNamed(Json::Value document, const char* path, bool is_there) {
  document["patchPath"] = path;
  PutInput(kInputFile, kalo::WriteJson(document));
  const auto named = LocatedPatch(kInputFile);
  Require(named.has_value() == is_there, "a patch that is there is found, and no other");
  Require(!named || *named == path, "under its own path");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  PutInput(kInputFile, TextOf(data, size));
  Json::Value root;
  const bool is_json =
      KALO::MESH::SDK::Upgrade::UpdateUtil::ParseJsonRootFromFile(kInputFile, root);
  Require(is_json != root.isNull(), "a document, or nothing");
  const auto named = LocatedPatch(kInputFile);
  Require(!named || (root.isObject() && root["patchPath"] == *named), "what is found is named");
  Require(!named || IsThere(*named), "what is found is there");
  if (!root.isObject()) return 0;
  PutInput(kPatch, "");
  CheckNamed(root, kPatch, true);
  CheckNamed(root, "/tmp/fuzz-patch/none", false);
  CheckNamed(root, "", false);
  return 0;
}
