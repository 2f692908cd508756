#pragma once

#include <gnutls/gnutls.h>

#include <optional>
#include <string_view>

namespace kalo::webapid {

/// @return N of "node<N>.mesh.internal"; empty for any other name.
[[nodiscard]] std::optional<int> NodeIdOfName(std::string_view name);

/// Verifies the client's certificate of a TLS session against the mesh's authority. The TLS library
/// only asks for a certificate; a client without one, or with a foreign one, gets this far.
/// @return the node that the certificate is bound to; empty when there is none.
[[nodiscard]] std::optional<int> VerifiedNodeId(gnutls_session_t session);

}  // namespace kalo::webapid
