#include "host/update/patch_format/sha256.h"

#include <array>
#include <stdexcept>

namespace kalo::patch {

Sha256::Sha256() {
  if (gnutls_hash_init(&handle_, GNUTLS_DIG_SHA256) != GNUTLS_E_SUCCESS) {
    throw std::runtime_error("the crypto library offers no SHA-256");
  }
}

Sha256::~Sha256() {
  gnutls_hash_deinit(handle_, nullptr);
}

void Sha256::Update(std::span<const char> bytes) {
  if (gnutls_hash(handle_, bytes.data(), bytes.size()) != GNUTLS_E_SUCCESS) {
    throw std::runtime_error("computing SHA-256 failed");
  }
}

std::string Sha256::Finish() {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::array<unsigned char, 32> digest{};
  gnutls_hash_output(handle_, digest.data());
  std::string text;
  text.reserve(2 * digest.size());
  for (const unsigned char byte : digest) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

bool IsDigest(std::string_view text) {
  return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace kalo::patch
