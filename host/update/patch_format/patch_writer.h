#pragma once

#include <string>

#include "host/update/patch_format/patch_file.h"
#include "host/update/patch_format/signing_key.h"

namespace kalo::patch {

/// What a patch is made of. Folders are taken with all that is below them; only regular files and
/// folders that are not empty can be part of a patch.
struct PatchSources {
  PatchDescription description;
  std::string payload_folder;
  std::string updater_file;
  std::string texts_folder;  ///< empty: no texts
};

/// Makes a patch file. The same sources give the same bytes: no times, no user names.
/// @param key without it the patch is not signed yet
/// @param out replaced in one step, or left as it was
/// @throws PatchError or std::runtime_error, saying what failed on which file.
void MakePatch(const PatchSources& sources, const SigningKey* key, const std::string& out);

/// Signs a patch file, or signs it anew. Every member is checked against the manifest first.
/// @param out may be the same path; replaced in one step, or left as it was
/// @throws PatchError or std::runtime_error, saying what failed.
void SignPatch(const std::string& path, const SigningKey& key, const std::string& out);

}  // namespace kalo::patch
