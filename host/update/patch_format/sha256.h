#pragma once

#include <gnutls/crypto.h>

#include <span>
#include <string>
#include <string_view>

namespace kalo::patch {

/// SHA-256 over bytes that come piece by piece.
class Sha256 {
 public:
  /// @throws std::runtime_error when the crypto library does not offer it.
  Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;
  ~Sha256();

  void Update(std::span<const char> bytes);
  /// @return the digest as 64 lower-case hexadecimal digits; the next piece begins a new digest.
  [[nodiscard]] std::string Finish();

 private:
  gnutls_hash_hd_t handle_ = nullptr;
};

/// @return whether the text is a digest as Finish gives it.
[[nodiscard]] bool IsDigest(std::string_view text);

}  // namespace kalo::patch
