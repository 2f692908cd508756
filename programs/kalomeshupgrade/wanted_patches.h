#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kalo::equal {

/// The nodes of one model.
struct ModelGroup {
  std::string unique;
  std::vector<std::int32_t> ids;

  [[nodiscard]] bool HasCap() const;
};

/// One kind of patch that the last check found to bring nodes to one version.
struct WantedPatch {
  std::string version;             ///< as the record has it, "VXM 1.4.0-76010"
  std::string base;                ///< pure version that it applies on; empty for a full patch
  std::string store;               ///< folder for the download
  std::vector<ModelGroup> groups;  ///< that of the CAP last
};

/// Reads the text form of the records, "model  0 3; other  5;".
[[nodiscard]] std::vector<ModelGroup> ParseGroups(const std::string& text);

/// Reads what the check recorded: the full patch first, then the small update on top of it.
/// @return empty when nothing is needed.
[[nodiscard]] std::vector<WantedPatch> ReadWantedPatches();

}  // namespace kalo::equal
