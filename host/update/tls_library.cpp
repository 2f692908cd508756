#include "host/update/tls_library.h"

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>

namespace kalo {

bool IsTlsUsable() {
  unsigned char byte = 0;
  return gnutls_rnd(GNUTLS_RND_NONCE, &byte, sizeof(byte)) >= 0;
}

}  // namespace kalo
