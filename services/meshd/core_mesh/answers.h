#pragma once

#include <json/value.h>

#include <string>

/// What core-mesh.so answers. All throw std::exception when it cannot be had.
namespace kalo::core_mesh {

/// @return `update_running` and `nodes`.
[[nodiscard]] Json::Value Nodes();

/// @return everything that a page shows, so that it can show it from this alone.
[[nodiscard]] Json::Value State();

/// @return the updates that have ended, the newest first.
[[nodiscard]] Json::Value History();

/// @return what the maker's lists say of a version, for each model of the mesh.
[[nodiscard]] Json::Value Releases(const std::string& version);

/// @return what the state files say and which locks are held.
[[nodiscard]] Json::Value Diagnosis();

}  // namespace kalo::core_mesh
