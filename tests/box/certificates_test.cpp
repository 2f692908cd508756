#include "box/setup/certificates.h"

#include <gnutls/gnutls.h>
#include <gtest/gtest.h>

#include <string>

namespace kalo::box {
namespace {

gnutls_datum_t Datum(const std::string& text) {
  return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())),  // NOLINT
          static_cast<unsigned>(text.size())};
}

// @return what GnuTLS thinks of a server that shows this certificate; 0: nothing against it.
unsigned Verify(const CertificateAuthority& authority, const Credential& credential,
                std::string host) {
  gnutls_x509_trust_list_t list = nullptr;
  EXPECT_EQ(gnutls_x509_trust_list_init(&list, 0), 0);
  const std::string ca = authority.Certificate();
  const gnutls_datum_t ca_datum = Datum(ca);
  EXPECT_EQ(
      gnutls_x509_trust_list_add_trust_mem(list, &ca_datum, nullptr, GNUTLS_X509_FMT_PEM, 0, 0), 1);
  gnutls_x509_crt_t certificate = nullptr;
  EXPECT_EQ(gnutls_x509_crt_init(&certificate), 0);
  const gnutls_datum_t datum = Datum(credential.certificate);
  EXPECT_EQ(gnutls_x509_crt_import(certificate, &datum, GNUTLS_X509_FMT_PEM), 0);
  gnutls_typed_vdata_st name{};
  name.type = GNUTLS_DT_DNS_HOSTNAME;
  name.data = reinterpret_cast<unsigned char*>(host.data());  // NOLINT(*-reinterpret-cast)
  name.size = static_cast<unsigned>(host.size());
  unsigned status = 0;
  EXPECT_EQ(
      gnutls_x509_trust_list_verify_crt2(list, &certificate, 1, &name, 1, 0, &status, nullptr), 0);
  gnutls_x509_crt_deinit(certificate);
  gnutls_x509_trust_list_deinit(list, 1);
  return status;
}

TEST(Certificates, AreValidForTheirOwnNamesOnly) {
  const CertificateAuthority authority("Mesh");
  const Credential credential =
      authority.Issue({"node1.mesh.internal", {"node1.mesh.internal"}, {"127.0.0.1"}});
  EXPECT_EQ(Verify(authority, credential, "node1.mesh.internal"), 0U);
  EXPECT_NE(Verify(authority, credential, "node2.mesh.internal"), 0U);
}

TEST(Certificates, OfAnotherAuthorityDoNotCount) {
  const CertificateAuthority authority("Mesh");
  const CertificateAuthority other("Mesh");
  const Credential credential = other.Issue({"node1.mesh.internal", {"node1.mesh.internal"}, {}});
  EXPECT_NE(Verify(authority, credential, "node1.mesh.internal"), 0U);
}

TEST(Certificates, FitTheirKeys) {
  const CertificateAuthority authority("Mesh");
  const Credential credential = authority.Issue({"node1", {"node1"}, {}});
  gnutls_certificate_credentials_t credentials = nullptr;
  ASSERT_EQ(gnutls_certificate_allocate_credentials(&credentials), 0);
  const gnutls_datum_t certificate = Datum(credential.certificate);
  const gnutls_datum_t key = Datum(credential.key);
  EXPECT_EQ(
      gnutls_certificate_set_x509_key_mem(credentials, &certificate, &key, GNUTLS_X509_FMT_PEM), 0);
  gnutls_certificate_free_credentials(credentials);
}

TEST(Certificates, AnAddressThatIsNoneIsRefused) {
  const CertificateAuthority authority("Mesh");
  EXPECT_THROW(static_cast<void>(authority.Issue({"x", {}, {"localhost"}})), std::runtime_error);
}

}  // namespace
}  // namespace kalo::box
