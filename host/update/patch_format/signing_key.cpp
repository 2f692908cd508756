#include "host/update/patch_format/signing_key.h"

#include <gnutls/x509.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "host/core/file_io.h"
#include "host/update/patch_format/datum.h"

namespace kalo::patch {
namespace {

constexpr std::size_t kLargestKeyFile = 16UL * 1024;

void Demand(int result, const std::string& doing) {
  if (result < 0) throw std::runtime_error(doing + ": " + gnutls_strerror(result));
}

// Text that the crypto library allocated.
class Exported {
 public:
  Exported() = default;
  Exported(const Exported&) = delete;
  Exported& operator=(const Exported&) = delete;
  ~Exported() { gnutls_free(datum_.data); }
  gnutls_datum_t* Out() { return &datum_; }
  [[nodiscard]] std::string Text() const {
    return {reinterpret_cast<const char*>(datum_.data), datum_.size};
  }

 private:
  gnutls_datum_t datum_{};
};

struct X509Deleter {
  void operator()(gnutls_x509_privkey_int* key) const { gnutls_x509_privkey_deinit(key); }
};

struct PublicDeleter {
  void operator()(gnutls_pubkey_st* key) const { gnutls_pubkey_deinit(key); }
};

}  // namespace

SigningKey::SigningKey() {
  gnutls_privkey_t raw = nullptr;
  Demand(gnutls_privkey_init(&raw), "making a key");
  key_.reset(raw);
}

SigningKey SigningKey::Generate() {
  SigningKey key;
  Demand(gnutls_privkey_generate2(key.key_.get(), GNUTLS_PK_EDDSA_ED25519, 0, 0, nullptr, 0),
         "making a key");
  return key;
}

SigningKey SigningKey::Load(const std::string& path) {
  const std::optional<std::string> pem = ReadFile(path, kLargestKeyFile);
  if (!pem) throw std::runtime_error(path + ": " + std::strerror(errno));
  SigningKey key;
  const gnutls_datum_t datum = AsDatum(*pem);
  Demand(gnutls_privkey_import_x509_raw(key.key_.get(), &datum, GNUTLS_X509_FMT_PEM, nullptr, 0),
         path + ": no private key in PEM form without a password");
  if (gnutls_privkey_get_pk_algorithm(key.key_.get(), nullptr) != GNUTLS_PK_EDDSA_ED25519) {
    throw std::runtime_error(path + ": not an Ed25519 private key");
  }
  return key;
}

std::string SigningKey::Sign(std::span<const char> bytes) const {
  const gnutls_datum_t data = AsDatum(bytes);
  Exported signature;
  Demand(
      gnutls_privkey_sign_data2(key_.get(), GNUTLS_SIGN_EDDSA_ED25519, 0, &data, signature.Out()),
      "signing");
  return signature.Text();
}

std::string SigningKey::PrivatePem() const {
  gnutls_x509_privkey_t raw = nullptr;
  Demand(gnutls_privkey_export_x509(key_.get(), &raw), "writing out a key");
  const std::unique_ptr<gnutls_x509_privkey_int, X509Deleter> key(raw);
  Exported pem;
  Demand(gnutls_x509_privkey_export2_pkcs8(key.get(), GNUTLS_X509_FMT_PEM, nullptr,
                                           GNUTLS_PKCS_PLAIN, pem.Out()),
         "writing out a key");
  return pem.Text();
}

std::string SigningKey::PublicPem() const {
  gnutls_pubkey_t raw = nullptr;
  Demand(gnutls_pubkey_init(&raw), "writing out a key");
  const std::unique_ptr<gnutls_pubkey_st, PublicDeleter> key(raw);
  Demand(gnutls_pubkey_import_privkey(key.get(), key_.get(), 0, 0), "writing out a key");
  Exported pem;
  Demand(gnutls_pubkey_export2(key.get(), GNUTLS_X509_FMT_PEM, pem.Out()), "writing out a key");
  return pem.Text();
}

}  // namespace kalo::patch
