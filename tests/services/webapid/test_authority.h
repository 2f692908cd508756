#pragma once

#include <gnutls/x509.h>

#include <memory>
#include <string>
#include <type_traits>

namespace kalo::test {

/// PEM texts.
struct Credential {
  std::string certificate;
  std::string key;
};

/// A certificate authority of a test's own.
class TestAuthority {
 public:
  TestAuthority();
  [[nodiscard]] const std::string& Certificate() const { return certificate_pem_; }
  /// @param name common name and DNS name; usable as client and server
  [[nodiscard]] Credential Issue(const std::string& name) const;

 private:
  struct DeinitKey {
    void operator()(gnutls_x509_privkey_t key) const { gnutls_x509_privkey_deinit(key); }
  };
  struct DeinitCertificate {
    void operator()(gnutls_x509_crt_t certificate) const { gnutls_x509_crt_deinit(certificate); }
  };
  using Key = std::unique_ptr<std::remove_pointer_t<gnutls_x509_privkey_t>, DeinitKey>;
  using Crt = std::unique_ptr<std::remove_pointer_t<gnutls_x509_crt_t>, DeinitCertificate>;

  static Key MakeKey();
  static Crt MakeCertificate(const std::string& name, gnutls_x509_privkey_t key);
  static std::string Pem(gnutls_x509_privkey_t key);
  static std::string Pem(gnutls_x509_crt_t certificate);

  Key key_;
  Crt certificate_;
  std::string certificate_pem_;
};

}  // namespace kalo::test
