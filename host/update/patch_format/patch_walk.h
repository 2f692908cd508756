#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "host/update/patch_format/manifest.h"
#include "host/update/patch_format/patch_file.h"

namespace kalo::patch {

/// Gets what a walk over a patch file finds. Data is handed on before the member's hash is known:
/// what a sink made of it counts only when the whole walk succeeds.
class PatchSink {
 public:
  PatchSink() = default;
  PatchSink(const PatchSink&) = delete;
  PatchSink& operator=(const PatchSink&) = delete;
  virtual ~PatchSink() = default;

  /// @param text the manifest's own bytes, whose signature has been checked if that was asked for
  virtual void OnManifest(const Manifest& manifest, const std::string& text) = 0;
  virtual void OnMember(const ListedMember& member) = 0;
  virtual void OnData(const ListedMember& member, std::span<const char> bytes) = 0;
  /// The member's size and hash were right.
  virtual void OnMemberEnd(const ListedMember& member) = 0;
};

/// Opens a patch file once and checks all of it, from the first byte to the last.
/// @param keys null: the signature is not looked at and may be missing (the maker's desk only)
/// @return the result of a valid patch.
/// @throws PatchError; what the sink throws passes through.
VerifyResult WalkPatch(const std::string& path, const KeyRing* keys, FileTrust trust,
                       PatchSink& sink);

}  // namespace kalo::patch
