#pragma once

namespace kalo {

/// Checks that the certificates with which this node calls the others are there and fit together.
/// The TLS library reads the files anew for each connection, since a certificate may be renewed,
/// but would say no more than that the connection failed.
/// @throws std::runtime_error, saying which file and why.
void CheckMeshCredentials();

}  // namespace kalo
