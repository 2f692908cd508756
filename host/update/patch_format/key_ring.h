#pragma once

#include <gnutls/abstract.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace kalo::patch {

/// The public keys whose signatures count. Without a key no signature counts.
class KeyRing {
 public:
  /// Loads every "*.pem" of a folder. A file that holds no Ed25519 public key is logged and left
  /// out; a folder that cannot be read gives an empty ring. TroubleReading tells.
  [[nodiscard]] static KeyRing Load(const std::string& folder);

  /// Adds the key of one PEM file.
  /// @throws std::runtime_error, saying file and cause, when it holds no Ed25519 public key.
  void AddFile(const std::string& path);

  /// Adds the key of a PEM text.
  /// @param name where it comes from, for errors
  /// @throws as AddFile
  void AddPem(const std::string& pem, const std::string& name);

  [[nodiscard]] bool Empty() const { return keys_.empty(); }
  /// @return errno when Load could not read the folder or a file of it, so that keys may be missing
  ///         that are there; 0 when it could, or when there is no folder.
  [[nodiscard]] int TroubleReading() const { return trouble_; }

  /// @return whether one of the keys made this signature over these bytes.
  [[nodiscard]] bool Verifies(std::span<const char> bytes, std::span<const char> signature) const;

 private:
  struct Deleter {
    void operator()(gnutls_pubkey_st* key) const { gnutls_pubkey_deinit(key); }
  };
  std::vector<std::unique_ptr<gnutls_pubkey_st, Deleter>> keys_;
  int trouble_ = 0;
};

}  // namespace kalo::patch
