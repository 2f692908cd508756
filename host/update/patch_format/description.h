#pragma once

#include <string>
#include <string_view>

#include "host/update/patch_format/patch_file.h"

namespace kalo::patch {

/// @return whether the text can be a hardware model's name: 1 to 63 letters, digits, "_.+-", which
///         does not begin with a dot. Files are named after models.
[[nodiscard]] bool IsModelName(std::string_view text);

/// Reads the member VERSION (key=value: unique, version, build, nano). The same form is a node's
/// own VERSION file.
/// @throws PatchError (kBadDescription) unless all four are there and agree.
[[nodiscard]] PatchDescription ParseDescription(std::string_view text);

/// @return the text of the member VERSION.
/// @throws PatchError (kBadDescription) when the description does not agree with itself.
[[nodiscard]] std::string WriteDescription(const PatchDescription& description);

}  // namespace kalo::patch
