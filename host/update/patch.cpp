#include "platform/update/patch.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "host/core/log.h"
#include "host/update/patch_format/patch_file.h"
#include "platform/paths.h"

namespace KALO::MESH::SDK::Upgrade {
namespace {

// @return whether there was a file.
bool Remove(const std::string& path) {
  if (::unlink(path.c_str()) == 0) return true;
  if (errno == ENOENT || errno == ENOTDIR) return false;
  throw std::system_error(errno, std::generic_category(), "cannot remove " + path);
}

// A file that could not be looked at may be the good one: it stays, and nobody may go on with it.
int TroubleLooking(const kalo::patch::VerifyResult& result, const kalo::patch::KeyRing& keys) {
  using kalo::patch::VerifyOutcome;
  if (result.outcome == VerifyOutcome::kNoKey || result.outcome == VerifyOutcome::kBadSignature) {
    return keys.TroubleReading();
  }
  const int error = result.error_number;
  return error == ENOENT || error == ENOTDIR || error == ELOOP ? 0 : error;
}

}  // namespace

PatchInfo Patch::ParsePatchInfo(const std::string& path) {
  const auto keys = kalo::patch::KeyRing::Load(paths::kPatchKeys);
  const kalo::patch::VerifyResult result = kalo::patch::VerifyPatch(path, keys);
  PatchInfo info;
  info.path = path;
  if (!result.IsValid()) {
    const int trouble = TroubleLooking(result, keys);
    if (trouble != 0) {
      throw std::system_error(trouble, std::generic_category(), "cannot read " + path);
    }
    if (Remove(path)) {
      kalo::Log(LOG_ERR, "removed %s, which is no valid patch: %s", path.c_str(),
                result.reason.c_str());
    }
    return info;
  }
  info.valid = true;
  info.version = result.description.version;
  info.unique = result.description.unique;
  info.build_num = result.description.build;
  info.nano_num = result.description.nano;
  return info;
}

}  // namespace KALO::MESH::SDK::Upgrade
