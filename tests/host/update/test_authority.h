#pragma once

#include <gnutls/x509.h>

#include <memory>
#include <string>

namespace kalo::test {

/// A certificate with its key, as PEM text.
struct Identity {
  std::string certificate;
  std::string key;
};

/// A certificate authority for tests.
class TestAuthority {
 public:
  TestAuthority();

  [[nodiscard]] const std::string& Certificate() const { return own_.certificate; }

  /// @return a certificate for "node<id>.mesh.internal", good for both ends of a connection.
  [[nodiscard]] Identity Issue(int node_id) const;

  /// Makes this node's credentials, in the fixed folder, those of a node of this authority.
  void Install(int node_id) const;

 private:
  Identity own_;
};

}  // namespace kalo::test
