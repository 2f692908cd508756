#include "services/webapid/mesh_identity.h"

#include <gnutls/x509.h>

#include <array>
#include <charconv>
#include <memory>
#include <type_traits>

namespace kalo::webapid {
namespace {

constexpr std::string_view kPrefix = "node";
constexpr std::string_view kSuffix = ".mesh.internal";
constexpr int kHighestId = 65535;

struct Deinit {
  void operator()(gnutls_x509_crt_t certificate) const { gnutls_x509_crt_deinit(certificate); }
};
using Certificate = std::unique_ptr<std::remove_pointer_t<gnutls_x509_crt_t>, Deinit>;

Certificate PeerCertificate(gnutls_session_t session) {
  unsigned count = 0;
  const gnutls_datum_t* chain = gnutls_certificate_get_peers(session, &count);
  gnutls_x509_crt_t raw = nullptr;
  if (chain == nullptr || count == 0 || gnutls_x509_crt_init(&raw) != 0) return nullptr;
  Certificate certificate(raw);
  if (gnutls_x509_crt_import(raw, chain, GNUTLS_X509_FMT_DER) != 0) return nullptr;
  return certificate;
}

// A certificate of two host names would be two nodes at once: it is none.
std::optional<int> NodeIdOf(const Certificate& certificate) {
  std::optional<int> id;
  for (unsigned i = 0;; ++i) {
    std::array<char, 256> name{};
    std::size_t size = name.size();
    const int type =
        gnutls_x509_crt_get_subject_alt_name(certificate.get(), i, name.data(), &size, nullptr);
    if (type == GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE) return id;
    if (type < 0) return std::nullopt;
    if (type != GNUTLS_SAN_DNSNAME) continue;
    if (id) return std::nullopt;
    id = NodeIdOfName({name.data(), size});
    if (!id) return std::nullopt;
  }
}

}  // namespace

std::optional<int> NodeIdOfName(std::string_view name) {
  if (!name.starts_with(kPrefix) || !name.ends_with(kSuffix) ||
      name.size() <= kPrefix.size() + kSuffix.size()) {
    return std::nullopt;
  }
  const std::string_view digits =
      name.substr(kPrefix.size(), name.size() - kPrefix.size() - kSuffix.size());
  int id = -1;
  const char* end = digits.data() + digits.size();
  const auto parsed = std::from_chars(digits.data(), end, id);
  const bool leading_zero = digits.size() > 1 && digits.front() == '0';
  if (parsed.ec != std::errc() || parsed.ptr != end || id < 0 || id > kHighestId || leading_zero) {
    return std::nullopt;
  }
  return id;
}

std::optional<int> VerifiedNodeId(gnutls_session_t session) {
  unsigned status = 0;
  if (gnutls_certificate_verify_peers2(session, &status) != 0 || status != 0) return std::nullopt;
  const Certificate certificate = PeerCertificate(session);
  return certificate == nullptr ? std::nullopt : NodeIdOf(certificate);
}

}  // namespace kalo::webapid
