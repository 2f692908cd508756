#pragma once

#include <optional>
#include <string>

namespace KALO::MESH::Webapi {

/// Reads the file in which the node side says where the full patch lies.
/// @param locator the file's path
/// @return the patch's path; empty when the file names none that is there.
[[nodiscard]] std::optional<std::string> LocatedPatch(const std::string& locator);

}  // namespace KALO::MESH::Webapi
