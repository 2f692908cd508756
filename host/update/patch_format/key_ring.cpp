#include "host/update/patch_format/key_ring.h"

#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/update/patch_format/datum.h"

namespace kalo::patch {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kLargestKeyFile = 16UL * 1024;

std::vector<fs::path> PemFiles(const std::string& folder, std::error_code& error) {
  std::vector<fs::path> files;
  for (auto entry = fs::directory_iterator(folder, error); !error && entry != fs::end(entry);
       entry.increment(error)) {
    if (entry->path().extension() == ".pem") files.push_back(entry->path());
  }
  if (error) Log(LOG_WARNING, "patch keys %s: %s", folder.c_str(), error.message().c_str());
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

KeyRing KeyRing::Load(const std::string& folder) {
  KeyRing ring;
  std::error_code error;
  const std::vector<fs::path> files = PemFiles(folder, error);
  if (error != std::errc::no_such_file_or_directory) ring.trouble_ = error.value();
  for (const fs::path& file : files) {
    try {
      ring.AddFile(file);
    } catch (const std::system_error& e) {
      ring.trouble_ = e.code().value();
      Log(LOG_WARNING, "patch key left out: %s", e.what());
    } catch (const std::runtime_error& e) {
      Log(LOG_WARNING, "patch key left out: %s", e.what());
    }
  }
  return ring;
}

void KeyRing::AddFile(const std::string& path) {
  const std::optional<std::string> pem = ReadFile(path, kLargestKeyFile);
  if (!pem) throw std::system_error(errno, std::generic_category(), path);
  AddPem(*pem, path);
}

void KeyRing::AddPem(const std::string& pem, const std::string& name) {
  gnutls_pubkey_t raw = nullptr;
  if (gnutls_pubkey_init(&raw) != GNUTLS_E_SUCCESS) throw std::runtime_error("no memory for a key");
  std::unique_ptr<gnutls_pubkey_st, Deleter> key(raw);
  const gnutls_datum_t datum = AsDatum(pem);
  const int result = gnutls_pubkey_import(key.get(), &datum, GNUTLS_X509_FMT_PEM);
  if (result != GNUTLS_E_SUCCESS) {
    throw std::runtime_error(name + ": no public key in PEM form: " + gnutls_strerror(result));
  }
  if (gnutls_pubkey_get_pk_algorithm(key.get(), nullptr) != GNUTLS_PK_EDDSA_ED25519) {
    throw std::runtime_error(name + ": not an Ed25519 public key");
  }
  keys_.push_back(std::move(key));
}

bool KeyRing::Verifies(std::span<const char> bytes, std::span<const char> signature) const {
  const gnutls_datum_t data = AsDatum(bytes);
  const gnutls_datum_t mark = AsDatum(signature);
  return std::any_of(keys_.begin(), keys_.end(), [&](const auto& key) {
    return gnutls_pubkey_verify_data2(key.get(), GNUTLS_SIGN_EDDSA_ED25519, 0, &data, &mark) >= 0;
  });
}

}  // namespace kalo::patch
