#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace kalo::patch {

/// How looking at a patch file ended.
enum class VerifyOutcome {
  kValid,
  kCannotRead,      ///< the file is missing, no regular file, or reading it failed
  kOthersCanWrite,  ///< it is not root's, or group or others may write it
  kNotAPatch,       ///< no plain tar that begins with a manifest and its signature
  kNoKey,           ///< there is no key to check the signature with
  kBadSignature,    ///< not signed, or not by one of the keys
  kBadManifest,     ///< signed, but its list of members breaks the rules
  kBadMember,       ///< a member is not what the manifest lists
  kBadDescription,  ///< the member VERSION does not describe a version
  kCannotWrite,     ///< taking the files out of it failed: no space, or the target is not empty
};

/// @return the outcome in a few words, for people.
[[nodiscard]] std::string_view ToWords(VerifyOutcome outcome);

/// What is wrong with a patch file, or with writing what it holds.
class PatchError : public std::runtime_error {
 public:
  /// @param error_number errno of the failed system call; 0 when none failed
  PatchError(VerifyOutcome outcome, const std::string& reason, int error_number = 0)
      : std::runtime_error(reason), outcome_(outcome), error_number_(error_number) {}

  [[nodiscard]] VerifyOutcome Outcome() const { return outcome_; }
  /// @return e.g. ENOSPC; 0 when no system call failed.
  [[nodiscard]] int ErrorNumber() const { return error_number_; }

 private:
  VerifyOutcome outcome_;
  int error_number_;
};

}  // namespace kalo::patch
