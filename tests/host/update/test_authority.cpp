#include "tests/host/update/test_authority.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "platform/paths.h"

namespace kalo::test {
namespace {

constexpr std::time_t kDay = 24L * 60 * 60;

void Demand(int result) {
  if (result < 0) throw std::runtime_error(gnutls_strerror(result));
}

struct KeyDeleter {
  void operator()(gnutls_x509_privkey_int* key) const { gnutls_x509_privkey_deinit(key); }
};
struct CertificateDeleter {
  void operator()(gnutls_x509_crt_int* certificate) const { gnutls_x509_crt_deinit(certificate); }
};
using Key = std::unique_ptr<gnutls_x509_privkey_int, KeyDeleter>;
using CertificateHandle = std::unique_ptr<gnutls_x509_crt_int, CertificateDeleter>;

Key EmptyKey() {
  gnutls_x509_privkey_t key = nullptr;
  Demand(gnutls_x509_privkey_init(&key));
  return Key(key);
}

Key NewKey() {
  Key holder = EmptyKey();
  Demand(gnutls_x509_privkey_generate(holder.get(), GNUTLS_PK_ECDSA,
                                      GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0));
  return holder;
}

CertificateHandle NewCertificate(const Key& key, const std::string& name, unsigned char serial) {
  gnutls_x509_crt_t certificate = nullptr;
  Demand(gnutls_x509_crt_init(&certificate));
  CertificateHandle holder(certificate);
  const std::time_t now = std::time(nullptr);
  Demand(gnutls_x509_crt_set_version(certificate, 3));
  Demand(gnutls_x509_crt_set_serial(certificate, &serial, 1));
  Demand(gnutls_x509_crt_set_activation_time(certificate, now - kDay));
  Demand(gnutls_x509_crt_set_expiration_time(certificate, now + kDay));
  Demand(gnutls_x509_crt_set_dn_by_oid(certificate, GNUTLS_OID_X520_COMMON_NAME, 0, name.data(),
                                       static_cast<unsigned>(name.size())));
  Demand(gnutls_x509_crt_set_key(certificate, key.get()));
  return holder;
}

std::string Text(gnutls_datum_t& datum) {
  std::string text(reinterpret_cast<const char*>(datum.data), datum.size);
  gnutls_free(datum.data);
  return text;
}

Identity ToIdentity(const CertificateHandle& certificate, const Key& key) {
  gnutls_datum_t certificate_pem{};
  gnutls_datum_t key_pem{};
  Demand(gnutls_x509_crt_export2(certificate.get(), GNUTLS_X509_FMT_PEM, &certificate_pem));
  Demand(gnutls_x509_privkey_export2(key.get(), GNUTLS_X509_FMT_PEM, &key_pem));
  return {Text(certificate_pem), Text(key_pem)};
}

gnutls_datum_t Datum(const std::string& text) {
  gnutls_datum_t datum{};
  datum.data = reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
  datum.size = static_cast<unsigned>(text.size());
  return datum;
}

}  // namespace

TestAuthority::TestAuthority() {
  const Key key = NewKey();
  const CertificateHandle certificate = NewCertificate(key, "mesh authority", 1);
  Demand(gnutls_x509_crt_set_ca_status(certificate.get(), 1));
  Demand(gnutls_x509_crt_set_key_usage(certificate.get(), GNUTLS_KEY_KEY_CERT_SIGN));
  Demand(
      gnutls_x509_crt_sign2(certificate.get(), certificate.get(), key.get(), GNUTLS_DIG_SHA256, 0));
  own_ = ToIdentity(certificate, key);
}

Identity TestAuthority::Issue(int node_id) const {
  const gnutls_datum_t authority_pem = Datum(own_.certificate);
  const gnutls_datum_t authority_key_pem = Datum(own_.key);
  const Key authority_key = EmptyKey();
  gnutls_x509_crt_t raw = nullptr;
  Demand(gnutls_x509_crt_init(&raw));
  const CertificateHandle authority(raw);
  Demand(gnutls_x509_crt_import(raw, &authority_pem, GNUTLS_X509_FMT_PEM));
  Demand(gnutls_x509_privkey_import(authority_key.get(), &authority_key_pem, GNUTLS_X509_FMT_PEM));

  const std::string name = "node" + std::to_string(node_id) + ".mesh.internal";
  const Key key = NewKey();
  const CertificateHandle certificate =
      NewCertificate(key, name, static_cast<unsigned char>(node_id + 2));
  Demand(gnutls_x509_crt_set_subject_alt_name(certificate.get(), GNUTLS_SAN_DNSNAME, name.data(),
                                              static_cast<unsigned>(name.size()), GNUTLS_FSAN_SET));
  Demand(gnutls_x509_crt_set_key_purpose_oid(certificate.get(), GNUTLS_KP_TLS_WWW_SERVER, 0));
  Demand(gnutls_x509_crt_set_key_purpose_oid(certificate.get(), GNUTLS_KP_TLS_WWW_CLIENT, 0));
  Demand(gnutls_x509_crt_sign2(certificate.get(), raw, authority_key.get(), GNUTLS_DIG_SHA256, 0));
  return ToIdentity(certificate, key);
}

void TestAuthority::Install(int node_id) const {
  const Identity identity = Issue(node_id);
  std::filesystem::create_directories(std::filesystem::path(KALO::paths::kNodeKey).parent_path());
  std::ofstream(KALO::paths::kMeshAuthority) << own_.certificate;
  std::ofstream(KALO::paths::kNodeCertificate) << identity.certificate;
  std::ofstream(KALO::paths::kNodeKey) << identity.key;
}

}  // namespace kalo::test
