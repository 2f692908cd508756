#pragma once

/// The numbers that a node answers with; the server has a sentence for each.
namespace kalo::node::error {

inline constexpr int kGeneral = 117;
inline constexpr int kInstalling = 5220;
inline constexpr int kNotVerified = 5221;
inline constexpr int kOtherModel = 5222;
inline constexpr int kNotNewer = 5223;
inline constexpr int kNoSpace = 5224;
inline constexpr int kNothingStaged = 5225;
inline constexpr int kCannotStage = 5226;
inline constexpr int kNoFile = 5227;
inline constexpr int kOtherBase = 5228;
inline constexpr int kBusy = 5229;

}  // namespace kalo::node::error
