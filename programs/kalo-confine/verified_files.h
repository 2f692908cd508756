#pragma once

#include <string>
#include <vector>

#include "host/update/patch_format/manifest.h"

namespace kalo::confine {

/// Reads the signed list that was unpacked with a patch's updater, and checks its signature.
/// @param folder where it was unpacked
/// @return the listed files but for the payload: updater, VERSION, texts.
/// @throws std::runtime_error, saying what is wrong
[[nodiscard]] std::vector<patch::ListedMember> ReadSignedList(int folder);

/// Copies files and compares each copy with the signed list.
/// @param from folder in which the files were unpacked; its links are never followed
/// @param to   an empty folder
/// @throws std::runtime_error when a file is missing or not the listed one
void CopyVerified(const std::vector<patch::ListedMember>& members, int from, const std::string& to);

}  // namespace kalo::confine
