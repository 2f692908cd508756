#include "host/update/mesh_credentials.h"

#include <gnutls/gnutls.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "host/core/file_io.h"
#include "host/update/patch_format/datum.h"
#include "platform/paths.h"

namespace kalo {
namespace {

constexpr std::size_t kLargestFile = 64UL * 1024;

struct Deleter {
  void operator()(gnutls_certificate_credentials_st* credentials) const {
    gnutls_certificate_free_credentials(credentials);
  }
};

[[noreturn]] void Fail(const std::string& files, const char* cause) {
  throw std::runtime_error("mesh credentials " + files + ": " + cause);
}

std::string Read(const char* path) {
  std::optional<std::string> text = ReadFile(path, kLargestFile);
  if (!text) Fail(path, std::strerror(errno));
  return std::move(*text);
}

}  // namespace

void CheckMeshCredentials() {
  const std::string authority = Read(KALO::paths::kMeshAuthority);
  const std::string certificate = Read(KALO::paths::kNodeCertificate);
  const std::string key = Read(KALO::paths::kNodeKey);
  gnutls_certificate_credentials_t raw = nullptr;
  const int made = gnutls_certificate_allocate_credentials(&raw);
  if (made < 0) throw std::runtime_error(gnutls_strerror(made));
  const std::unique_ptr<gnutls_certificate_credentials_st, Deleter> holder(raw);
  const gnutls_datum_t trust = patch::AsDatum(authority);
  const int trusted = gnutls_certificate_set_x509_trust_mem(raw, &trust, GNUTLS_X509_FMT_PEM);
  if (trusted < 0) Fail(KALO::paths::kMeshAuthority, gnutls_strerror(trusted));
  if (trusted == 0) Fail(KALO::paths::kMeshAuthority, "holds no certificate");
  const gnutls_datum_t own = patch::AsDatum(certificate);
  const gnutls_datum_t secret = patch::AsDatum(key);
  const int result = gnutls_certificate_set_x509_key_mem(raw, &own, &secret, GNUTLS_X509_FMT_PEM);
  if (result < 0) {
    Fail(std::string(KALO::paths::kNodeCertificate) + " with " + KALO::paths::kNodeKey,
         gnutls_strerror(result));
  }
}

}  // namespace kalo
