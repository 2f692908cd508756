#pragma once

#include <gnutls/abstract.h>

#include <memory>
#include <span>
#include <string>

namespace kalo::patch {

/// The maker's private Ed25519 key, with which patches are signed. Never on a node.
class SigningKey {
 public:
  /// Makes a new key from the system's randomness.
  /// @throws std::runtime_error when the crypto library cannot.
  [[nodiscard]] static SigningKey Generate();

  /// Reads a private key from an unencrypted PEM file.
  /// @throws std::runtime_error, saying file and cause.
  [[nodiscard]] static SigningKey Load(const std::string& path);

  /// @return the Ed25519 signature over these bytes, 64 bytes.
  [[nodiscard]] std::string Sign(std::span<const char> bytes) const;

  /// @return the key as PEM text. The private one must only be written where nobody else reads it.
  [[nodiscard]] std::string PrivatePem() const;
  [[nodiscard]] std::string PublicPem() const;

 private:
  struct Deleter {
    void operator()(gnutls_privkey_st* key) const { gnutls_privkey_deinit(key); }
  };
  SigningKey();
  std::unique_ptr<gnutls_privkey_st, Deleter> key_;
};

}  // namespace kalo::patch
