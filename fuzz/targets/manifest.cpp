// A patch's manifest and its description of itself.

#include "host/update/patch_format/manifest.h"
#include "fuzz/fuzz_target.h"
#include "host/update/patch_format/description.h"
#include "host/update/patch_format/patch_error.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  using namespace kalo::patch;
  const std::string text = TextOf(data, size);
  try {
    const Manifest manifest = ParseManifest(text);
    for (const ListedMember& member : manifest.members) {
      Require(!member.name.starts_with('/') && member.name.find("..") == std::string::npos,
              "no member leaves its folder");
    }
    const std::string written = WriteManifest(manifest);
    Require(WriteManifest(ParseManifest(written)) == written, "it round-trips");
  } catch (const PatchError&) {
  }
  try {
    const PatchDescription description = ParseDescription(text);
    (void)ParseDescription(WriteDescription(description));
  } catch (const PatchError&) {
  }
  return 0;
}
