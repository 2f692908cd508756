#pragma once

/// The numbers by which a client tells failures apart: an error answer carries nothing else.
namespace KALO::MESH::Webapi::error {

inline constexpr int kPrecheckFailed = 100;
inline constexpr int kGeneral = 117;
inline constexpr int kBadParameter = 403;
inline constexpr int kPatchVersionsDiffer = 1001;
inline constexpr int kNoNodeNeedsPatch = 1002;
inline constexpr int kBadPatch = 1003;
inline constexpr int kNoBackgroundProcess = 5200;
inline constexpr int kAutoUpdating = 5202;
inline constexpr int kUpgradeNotStarted = 5209;  ///< or started, but its state not written
inline constexpr int kBusy = 9001;               ///< the mesh service or the patch lock refuses
inline constexpr int kNoUsableAnswer = 9002;

}  // namespace KALO::MESH::Webapi::error
