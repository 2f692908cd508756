#include "platform/update/version.h"

#include <optional>

#include "host/update/patch_format/version_text.h"

namespace KALO::MESH::SDK::Utils {

int GetBuildNum(const std::string& version, int& build, int& nano) {
  const std::optional<kalo::patch::VersionNumbers> numbers = kalo::patch::ParseVersionText(version);
  build = numbers ? numbers->build : 0;
  nano = numbers ? numbers->nano : 0;
  return numbers ? 0 : -1;
}

}  // namespace KALO::MESH::SDK::Utils
