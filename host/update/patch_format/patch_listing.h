#pragma once

#include <string>

#include "host/update/patch_format/manifest.h"
#include "host/update/patch_format/patch_file.h"

namespace kalo::patch {

struct PatchListing {
  VerifyResult result;
  Manifest manifest;
};

/// Lists what a patch file holds, for people. Everything is checked but who signed it, so a node
/// must never act on it.
/// @throws PatchError when it is no patch, signed or not.
[[nodiscard]] PatchListing ListPatch(const std::string& path);

}  // namespace kalo::patch
