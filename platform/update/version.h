#pragma once

#include <string>

namespace KALO::MESH::SDK::Utils {

/// Reads build and small-update number from a version text: "VXM 1.4.0-76010 Update 3",
/// "1.4.0-76010 Update 3", "76010-3", "76010"; without a small-update number it is 0. Behind VXM
/// any word is a version, and any word may stand before the small-update number or alone: "VXM
/// 2-9346", "VXM 1.3.1-9346 U2 4", "VXM 1.4.0-76000 Beta".
/// @return 0; negative when the text is no version or a number does not fit, both outputs then 0.
int GetBuildNum(const std::string& version, int& build, int& nano);

}  // namespace KALO::MESH::SDK::Utils
