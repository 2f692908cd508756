#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/update/patch_format/manifest.h"

namespace kalo::patch {

/// A file at the maker's desk with the place that it gets in the patch.
struct SourceFile {
  ListedMember member;
  std::string path;
};

/// Looks through a folder and computes every file's hash.
/// @param prefix goes before the names, with a slash at its end
/// @return the files by ascending name.
/// @throws PatchError (kCannotRead) for anything that a patch cannot carry: links, devices, empty
///         folders, what cannot be read.
[[nodiscard]] std::vector<SourceFile> ScanFolder(const std::string& folder,
                                                 std::string_view prefix);

/// @throws PatchError (kCannotRead)
[[nodiscard]] SourceFile ScanFile(const std::string& path, std::string_view name);

/// Reads a regular file piece by piece, without following a link.
/// @throws PatchError (kCannotRead)
void ReadInPieces(const std::string& path, const std::function<void(std::span<const char>)>& take);

}  // namespace kalo::patch
