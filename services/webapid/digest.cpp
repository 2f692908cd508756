#include "services/webapid/digest.h"

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>

#include <array>
#include <stdexcept>

namespace kalo::webapid {

std::string Sha256Hex(std::string_view text) {
  std::array<unsigned char, 32> digest{};
  if (gnutls_hash_fast(GNUTLS_DIG_SHA256, text.data(), text.size(), digest.data()) != 0) {
    throw std::runtime_error("SHA-256 is not available");
  }
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hex;
  hex.reserve(2 * digest.size());
  for (const unsigned char byte : digest) {
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 0xF];
  }
  return hex;
}

bool EqualInConstantTime(std::string_view a, std::string_view b) {
  return a.size() == b.size() && gnutls_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace kalo::webapid
