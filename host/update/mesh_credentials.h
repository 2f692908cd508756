#pragma once

namespace kalo {

// PEM files; docs/files.md says who writes them.
inline constexpr const char* kMeshAuthority = "/etc/kalo/mesh/ca.crt";
inline constexpr const char* kNodeCertificate = "/etc/kalo/mesh/node.crt";
inline constexpr const char* kNodeKey = "/etc/kalo/mesh/node.key";

/// Checks that the certificates with which this node calls the others are there and fit together.
/// The TLS library reads the files anew for each connection, since a certificate may be renewed,
/// but would say no more than that the connection failed.
/// @throws std::runtime_error, saying which file and why.
void CheckMeshCredentials();

}  // namespace kalo
