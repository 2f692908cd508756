#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "host/update/patch_format/key_ring.h"
#include "host/update/patch_format/patch_error.h"

/// A patch file is a plain tar (ustar) whose second member signs the first, manifest.json, which in
/// turn lists size, SHA-256 and mode of every file that follows. Nothing that a signed manifest
/// does not list passes.
namespace kalo::patch {

/// What a patch says of itself: its member VERSION.
struct PatchDescription {
  std::string unique;   ///< the hardware model that it is for
  std::string version;  ///< display form, "VXM 1.4.0-76010 Update 3"
  std::int32_t build = 0;
  std::int32_t nano = 0;
};

/// Whose files are looked at.
enum class FileTrust {
  kRootOnly,  ///< on a node: the file must be root's and nobody else may write it
  kAnyOwner,  ///< at the maker's desk
};

struct VerifyResult {
  VerifyOutcome outcome = VerifyOutcome::kCannotRead;
  std::string reason;            ///< what is wrong, with the member's name; empty when valid
  int error_number = 0;          ///< of the system call that failed; 0 when the file is at fault
  PatchDescription description;  ///< only when valid, as the rest
  bool is_signed = false;        ///< a signature is there; who gives keys has it checked, too
  std::uint64_t payload_bytes = 0;
  std::uint32_t payload_files = 0;

  [[nodiscard]] bool IsValid() const { return outcome == VerifyOutcome::kValid; }
};

/// Reads a patch file whole, once, and checks signature, order, names, modes, owners, sizes and
/// hashes. Memory stays below 4 MiB however large the file is. Never follows a link, never hangs on
/// a FIFO, never throws on what the file holds.
[[nodiscard]] VerifyResult VerifyPatch(const std::string& path, const KeyRing& keys,
                                       FileTrust trust = FileTrust::kRootOnly);

/// Told how far the work is, at least once per 256 KiB, with the bytes of all listed files.
using PatchProgress = std::function<void(std::uint64_t bytes_done, std::uint64_t bytes_total)>;

/// Writes the files below "payload/" into a folder, without that prefix, and verifies the whole
/// patch file while it does so. The files are on the disk when it returns.
/// @param target_folder an existing empty folder; when this throws, what it holds must not be used
/// @param progress      may be empty; what it throws passes through
/// @return the result of a valid patch.
/// @throws PatchError whose outcome says what is wrong.
VerifyResult ExtractPayload(const std::string& path, const KeyRing& keys,
                            const std::string& target_folder, const PatchProgress& progress = {},
                            FileTrust trust = FileTrust::kRootOnly);

}  // namespace kalo::patch
