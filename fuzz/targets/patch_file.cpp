// A whole patch file: nothing that no known key signed is valid, and no file harms its reader.

#include "host/update/patch_format/patch_file.h"
#include "fuzz/fuzz_target.h"
#include "host/update/patch_format/patch_error.h"
#include "host/update/patch_format/patch_listing.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  using namespace kalo::patch;
  PutInput(kInputFile, TextOf(data, size));
  Require(!VerifyPatch(kInputFile, KeyRing(), FileTrust::kAnyOwner).IsValid(), "there is no key");
  try {
    (void)ListPatch(kInputFile);
  } catch (const PatchError&) {
    return 0;
  }
  return 0;
}
