#pragma once

#include <gnutls/gnutls.h>

#include <span>

namespace kalo::patch {

/// Lends bytes to the crypto library, which only reads them although its type does not say so.
[[nodiscard]] inline gnutls_datum_t AsDatum(std::span<const char> bytes) {
  gnutls_datum_t datum{};
  datum.data = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
  datum.size = static_cast<unsigned int>(bytes.size());
  return datum;
}

}  // namespace kalo::patch
