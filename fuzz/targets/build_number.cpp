// The platform's readers of version texts, which must agree with each other.

#include "fuzz/fuzz_target.h"
#include "host/update/patch_format/version_text.h"
#include "platform/update/group_update.h"
#include "platform/update/version.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  const std::string text = TextOf(data, size);
  int build = 1;
  int nano = 1;
  const bool is_version = KALO::MESH::SDK::Utils::GetBuildNum(text, build, nano) == 0;
  const auto numbers = kalo::patch::ParseVersionText(text);
  Require(is_version == numbers.has_value(), "both know the same versions");
  if (!is_version) {
    Require(build == 0 && nano == 0, "what is no version leaves nothing");
    return 0;
  }
  Require(build == numbers->build && nano == numbers->nano, "both read the same numbers");
  std::string pure;
  const KALO::MESH::SDK::Upgrade::GroupUpdate update;
  if (!update.ConvertVersion(text, pure)) return 0;
  const auto again = kalo::patch::ParseVersionText(pure);
  Require(again && *again == *numbers, "the pure form means the same");
  return 0;
}
