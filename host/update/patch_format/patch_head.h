#pragma once

#include <string>

#include "host/update/patch_format/key_ring.h"
#include "host/update/patch_format/patch_file.h"

namespace kalo::patch {

/// Reads a patch file's manifest, checks its signature, and reads what the patch says of itself.
/// The other members are not looked at: for callers who know the whole file's hash already.
/// @throws PatchError whose outcome says what is wrong.
[[nodiscard]] PatchDescription ReadSignedHead(const std::string& path, const KeyRing& keys,
                                              FileTrust trust = FileTrust::kRootOnly);

}  // namespace kalo::patch
