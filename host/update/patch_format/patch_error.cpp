#include "host/update/patch_format/patch_error.h"

namespace kalo::patch {

std::string_view ToWords(VerifyOutcome outcome) {
  switch (outcome) {
    case VerifyOutcome::kValid:
      return "valid";
    case VerifyOutcome::kCannotRead:
      return "cannot be read";
    case VerifyOutcome::kOthersCanWrite:
      return "others can write it";
    case VerifyOutcome::kNotAPatch:
      return "not a patch file";
    case VerifyOutcome::kNoKey:
      return "no key to check it with";
    case VerifyOutcome::kBadSignature:
      return "signature does not hold";
    case VerifyOutcome::kBadManifest:
      return "manifest breaks the rules";
    case VerifyOutcome::kBadMember:
      return "a member is not what was signed";
    case VerifyOutcome::kBadDescription:
      return "its version is not described";
    case VerifyOutcome::kCannotWrite:
      return "cannot be written";
  }
  return "unknown";
}

}  // namespace kalo::patch
