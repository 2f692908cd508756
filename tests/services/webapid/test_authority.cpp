#include "tests/services/webapid/test_authority.h"

#include <gnutls/gnutls.h>

#include <array>
#include <ctime>
#include <stdexcept>

#include "host/core/file_io.h"

namespace kalo::test {
namespace {

void Check(int result) {
  if (result < 0) throw std::runtime_error(gnutls_strerror(result));
}

std::string Take(gnutls_datum_t& datum) {
  std::string text(reinterpret_cast<const char*>(datum.data), datum.size);
  gnutls_free(datum.data);
  return text;
}

}  // namespace

TestAuthority::Key TestAuthority::MakeKey() {
  gnutls_x509_privkey_t raw = nullptr;
  Check(gnutls_x509_privkey_init(&raw));
  Key key(raw);
  Check(gnutls_x509_privkey_generate(
      raw, GNUTLS_PK_ECDSA, static_cast<unsigned>(GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1)),
      0));
  return key;
}

TestAuthority::Crt TestAuthority::MakeCertificate(const std::string& name,
                                                  gnutls_x509_privkey_t key) {
  gnutls_x509_crt_t raw = nullptr;
  Check(gnutls_x509_crt_init(&raw));
  Crt certificate(raw);
  Check(gnutls_x509_crt_set_version(raw, 3));
  const std::string serial = RandomHex(8);
  Check(gnutls_x509_crt_set_serial(raw, serial.data(), serial.size()));
  const std::time_t now = std::time(nullptr);
  Check(gnutls_x509_crt_set_activation_time(raw, now - 3600));
  Check(gnutls_x509_crt_set_expiration_time(raw, now + 86400));
  Check(gnutls_x509_crt_set_dn_by_oid(raw, GNUTLS_OID_X520_COMMON_NAME, 0, name.data(),
                                      static_cast<unsigned>(name.size())));
  Check(gnutls_x509_crt_set_key(raw, key));
  return certificate;
}

std::string TestAuthority::Pem(gnutls_x509_privkey_t key) {
  gnutls_datum_t text{};
  Check(gnutls_x509_privkey_export2(key, GNUTLS_X509_FMT_PEM, &text));
  return Take(text);
}

std::string TestAuthority::Pem(gnutls_x509_crt_t certificate) {
  gnutls_datum_t text{};
  Check(gnutls_x509_crt_export2(certificate, GNUTLS_X509_FMT_PEM, &text));
  return Take(text);
}

TestAuthority::TestAuthority()
    : key_(MakeKey()), certificate_(MakeCertificate("test authority", key_.get())) {
  Check(gnutls_x509_crt_set_ca_status(certificate_.get(), 1));
  Check(gnutls_x509_crt_set_key_usage(certificate_.get(), GNUTLS_KEY_KEY_CERT_SIGN));
  Check(gnutls_x509_crt_sign2(certificate_.get(), certificate_.get(), key_.get(), GNUTLS_DIG_SHA256,
                              0));
  certificate_pem_ = Pem(certificate_.get());
}

Credential TestAuthority::Issue(const std::string& name) const {
  const Key key = MakeKey();
  const Crt certificate = MakeCertificate(name, key.get());
  Check(gnutls_x509_crt_set_subject_alt_name(certificate.get(), GNUTLS_SAN_DNSNAME, name.data(),
                                             static_cast<unsigned>(name.size()), GNUTLS_FSAN_SET));
  Check(gnutls_x509_crt_set_key_purpose_oid(certificate.get(), GNUTLS_KP_TLS_WWW_SERVER, 0));
  Check(gnutls_x509_crt_set_key_purpose_oid(certificate.get(), GNUTLS_KP_TLS_WWW_CLIENT, 0));
  Check(gnutls_x509_crt_sign2(certificate.get(), certificate_.get(), key_.get(), GNUTLS_DIG_SHA256,
                              0));
  return {Pem(certificate.get()), Pem(key.get())};
}

}  // namespace kalo::test
