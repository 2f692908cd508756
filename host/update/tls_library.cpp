#include "host/update/tls_library.h"

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <syslog.h>

#include "host/core/log.h"

namespace kalo {

bool IsTlsUsable() {
  unsigned char byte = 0;
  const int result = gnutls_rnd(GNUTLS_RND_NONCE, &byte, sizeof(byte));
  if (result >= 0) return true;
  Log(LOG_ERR, "the TLS library cannot be used: %s", gnutls_strerror(result));
  return false;
}

}  // namespace kalo
