#pragma once

/// Where the maker's update feed is in a box: outside the mesh, on the network that the nodes
/// share.
namespace kalo::box {

inline constexpr const char* kFeedAddress = "127.0.0.100";
inline constexpr const char* kFeedListen = "127.0.0.100:443";
inline constexpr const char* kFeedUrl = "https://127.0.0.100";

}  // namespace kalo::box
