#pragma once

#include <filesystem>

namespace kalo::box {

/// Shows a slot's tree at /usr/kalo, read-only: what runs is changed by installing into the other
/// slot and restarting, never in place.
/// @throws std::system_error
void MountFirmware(const std::filesystem::path& slot);

}  // namespace kalo::box
