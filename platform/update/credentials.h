#pragma once

namespace KALO::MESH::SDK::Webapi {

/// Loads the credentials with which this node calls the others, ahead of the first call.
/// @param load true (the only value)
/// @return 0; anything else when they cannot be loaded.
int KaloCredInit(bool load);

}  // namespace KALO::MESH::SDK::Webapi
