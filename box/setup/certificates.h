#pragma once

#include <gnutls/x509.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace kalo::box {

/// A private key (ECDSA on P-256) and the certificate on it.
struct Credential {
  std::string certificate;  ///< PEM
  std::string key;          ///< PEM, PKCS #8
};

/// Whom a certificate names.
struct Subject {
  std::string common_name;
  std::vector<std::string> dns_names;
  std::vector<std::string> ipv4_addresses;  ///< in dotted notation
};

/// An authority made for one mesh, whose key lives and dies with this object. Certificates are
/// valid for a year, as client and as server.
class CertificateAuthority {
 public:
  /// @throws std::runtime_error; so do the others
  explicit CertificateAuthority(const std::string& name);

  /// @return the authority's own certificate, PEM.
  [[nodiscard]] std::string Certificate() const;
  [[nodiscard]] Credential Issue(const Subject& subject) const;

 private:
  template <auto Function>
  struct Deinit {
    template <typename T>
    void operator()(T* object) const {
      Function(object);
    }
  };
  using Key = std::unique_ptr<std::remove_pointer_t<gnutls_x509_privkey_t>,
                              Deinit<gnutls_x509_privkey_deinit>>;
  using Crt =
      std::unique_ptr<std::remove_pointer_t<gnutls_x509_crt_t>, Deinit<gnutls_x509_crt_deinit>>;

  static Key MakeKey();
  static Crt MakeCertificate(const Subject& subject, const Key& key);

  Key key_;
  Crt certificate_;
};

}  // namespace kalo::box
