#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/update/patch_format/key_ring.h"
#include "host/update/patch_format/signing_key.h"
#include "tests/host/update/temporary_folder.h"

namespace kalo::test {

/// One tar member with everything about it free, also what no writer of ours would write.
struct RawMember {
  std::string name;
  std::string data = {};
  unsigned mode = 0644;
  char type = '0';
  unsigned uid = 0;
  unsigned gid = 0;
  std::string owner = {};  ///< user name
  std::string link = {};
  std::optional<std::uint64_t> claimed_size = {};  ///< instead of the data's
  std::string magic = std::string(
      "ustar\0"
      "00",
      8);
};

/// @return the members as a tar file, with its end marker.
[[nodiscard]] std::string TarBytes(const std::vector<RawMember>& members);

/// A patch put together by hand.
struct RawPatch {
  std::vector<RawMember> members;       ///< behind the signature
  std::optional<std::string> manifest;  ///< instead of the right one

  /// @return a manifest that lists the regular files as they are.
  [[nodiscard]] std::string RightManifest() const;
  [[nodiscard]] std::string Bytes(const patch::SigningKey& key) const;
  RawMember& Member(const std::string& name);
};

/// A small valid patch: VERSION, updater, a text and two payload files, with folders.
[[nodiscard]] RawPatch GoodPatch();

/// A maker's key with the ring that knows it.
struct Maker {
  Maker();
  patch::SigningKey key;
  patch::KeyRing ring;
};

}  // namespace kalo::test
