#include "box/setup/certificates.h"

#include <arpa/inet.h>
#include <gnutls/crypto.h>

#include <array>
#include <ctime>
#include <stdexcept>

namespace kalo::box {
namespace {

constexpr std::time_t kHour = 3600;
constexpr std::time_t kYear = kHour * 24 * 365;
constexpr unsigned kVersion = 3;

void Check(int code, const char* what) {
  if (code < 0) throw std::runtime_error(std::string(what) + ": " + gnutls_strerror(code));
}

// Owns what a GnuTLS export function allocated.
class Datum {
 public:
  Datum() = default;
  Datum(const Datum&) = delete;
  Datum& operator=(const Datum&) = delete;
  ~Datum() { gnutls_free(datum_.data); }
  gnutls_datum_t* Get() { return &datum_; }
  [[nodiscard]] std::string Text() const {
    return {reinterpret_cast<const char*>(datum_.data), datum_.size};  // NOLINT
  }

 private:
  gnutls_datum_t datum_{};
};

std::string ToPem(gnutls_x509_crt_t certificate) {
  Datum pem;
  Check(gnutls_x509_crt_export2(certificate, GNUTLS_X509_FMT_PEM, pem.Get()), "certificate");
  return pem.Text();
}

std::string ToPem(gnutls_x509_privkey_t key) {
  Datum pem;
  Check(gnutls_x509_privkey_export2_pkcs8(key, GNUTLS_X509_FMT_PEM, nullptr, GNUTLS_PKCS_PLAIN,
                                          pem.Get()),
        "private key");
  return pem.Text();
}

void AddNames(gnutls_x509_crt_t certificate, const Subject& subject) {
  Check(gnutls_x509_crt_set_dn_by_oid(certificate, GNUTLS_OID_X520_COMMON_NAME, 0,
                                      subject.common_name.data(),
                                      static_cast<unsigned>(subject.common_name.size())),
        "common name");
  for (const std::string& name : subject.dns_names) {
    Check(gnutls_x509_crt_set_subject_alt_name(certificate, GNUTLS_SAN_DNSNAME, name.data(),
                                               static_cast<unsigned>(name.size()),
                                               GNUTLS_FSAN_APPEND),
          "host name");
  }
  for (const std::string& text : subject.ipv4_addresses) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) throw std::runtime_error("bad address");
    Check(gnutls_x509_crt_set_subject_alt_name(certificate, GNUTLS_SAN_IPADDRESS, &address,
                                               sizeof address, GNUTLS_FSAN_APPEND),
          "address");
  }
}

void AddSerialAndTimes(gnutls_x509_crt_t certificate) {
  std::array<unsigned char, 16> serial{};
  Check(gnutls_rnd(GNUTLS_RND_NONCE, serial.data(), serial.size()), "random number");
  serial[0] &= 0x7F;  // positive
  serial[0] |= 0x40;  // and of full length
  Check(gnutls_x509_crt_set_serial(certificate, serial.data(), serial.size()), "serial");
  // An hour back: clocks differ.
  const std::time_t now = std::time(nullptr);
  Check(gnutls_x509_crt_set_activation_time(certificate, now - kHour), "time");
  Check(gnutls_x509_crt_set_expiration_time(certificate, now + kYear), "time");
}

}  // namespace

CertificateAuthority::Key CertificateAuthority::MakeKey() {
  gnutls_x509_privkey_t raw = nullptr;
  Check(gnutls_x509_privkey_init(&raw), "private key");
  Key key(raw);
  Check(gnutls_x509_privkey_generate(raw, GNUTLS_PK_ECDSA,
                                     GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0),
        "private key");
  return key;
}

CertificateAuthority::Crt CertificateAuthority::MakeCertificate(const Subject& subject,
                                                                const Key& key) {
  gnutls_x509_crt_t raw = nullptr;
  Check(gnutls_x509_crt_init(&raw), "certificate");
  Crt certificate(raw);
  Check(gnutls_x509_crt_set_version(raw, kVersion), "certificate");
  Check(gnutls_x509_crt_set_key(raw, key.get()), "certificate");
  AddSerialAndTimes(raw);
  AddNames(raw, subject);
  std::array<unsigned char, 64> id{};
  std::size_t size = id.size();
  Check(gnutls_x509_crt_get_key_id(raw, 0, id.data(), &size), "key id");
  Check(gnutls_x509_crt_set_subject_key_id(raw, id.data(), size), "key id");
  return certificate;
}

CertificateAuthority::CertificateAuthority(const std::string& name)
    : key_(MakeKey()), certificate_(MakeCertificate({name, {}, {}}, key_)) {
  gnutls_x509_crt_t crt = certificate_.get();
  Check(gnutls_x509_crt_set_basic_constraints(crt, 1, 0), "constraints");
  Check(gnutls_x509_crt_set_key_usage(crt, GNUTLS_KEY_KEY_CERT_SIGN | GNUTLS_KEY_CRL_SIGN),
        "key usage");
  Check(gnutls_x509_crt_sign2(crt, crt, key_.get(), GNUTLS_DIG_SHA256, 0), "signing");
}

std::string CertificateAuthority::Certificate() const {
  return ToPem(certificate_.get());
}

Credential CertificateAuthority::Issue(const Subject& subject) const {
  const Key key = MakeKey();
  const Crt certificate = MakeCertificate(subject, key);
  gnutls_x509_crt_t crt = certificate.get();
  Check(gnutls_x509_crt_set_basic_constraints(crt, 0, -1), "constraints");
  Check(gnutls_x509_crt_set_key_usage(crt, GNUTLS_KEY_DIGITAL_SIGNATURE), "key usage");
  Check(gnutls_x509_crt_set_key_purpose_oid(crt, GNUTLS_KP_TLS_WWW_SERVER, 0), "key purpose");
  Check(gnutls_x509_crt_set_key_purpose_oid(crt, GNUTLS_KP_TLS_WWW_CLIENT, 0), "key purpose");
  Check(gnutls_x509_crt_sign2(crt, certificate_.get(), key_.get(), GNUTLS_DIG_SHA256, 0),
        "signing");
  return {ToPem(crt), ToPem(key.get())};
}

}  // namespace kalo::box
