#pragma once

namespace KALO::MESH::Webapi {

/// From this build on an offer is a promotion to the next major release: it is recorded and
/// answered apart, and no small update is derived from it.
inline constexpr int kFirstPromotionBuild = 76000;

[[nodiscard]] constexpr bool IsPromotion(int build) {
  return build >= kFirstPromotionBuild;
}

}  // namespace KALO::MESH::Webapi
