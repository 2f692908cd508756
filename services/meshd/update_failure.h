#pragma once

#include "services/meshd/node_api.h"
#include "services/meshd/node_report.h"
#include "services/meshd/update_record.h"

namespace kalo::meshd {

// The error triples of a node that was not updated: which node and what in the description, why in
// the message.

[[nodiscard]] NodeError InstallFailed(const UpdateNode& node, const InstallReport& install);
/// @param version what it runs in its new boot
[[nodiscard]] NodeError FellBack(const UpdateNode& node, const std::string& version);
/// It took the order, and no new boot came in time.
[[nodiscard]] NodeError TookTooLong(const UpdateNode& node);
[[nodiscard]] NodeError StartRefused(const UpdateNode& node, std::int32_t error_number);
/// Why a node was not told to install.
enum class LateCause {
  kSilent,   ///< it did not answer
  kBusy,     ///< it was at another patch
  kNotSaved  ///< what is not on disk is not ordered
};
/// It could not be told to install in time.
[[nodiscard]] NodeError NotReached(const UpdateNode& node, LateCause cause);
/// It was offline when the update began.
[[nodiscard]] NodeError WasOffline(const UpdateNode& node);

}  // namespace kalo::meshd
