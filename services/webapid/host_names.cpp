#include "services/webapid/host_names.h"

#include <arpa/inet.h>
#include <gnutls/x509.h>
#include <strings.h>

#include <array>
#include <memory>
#include <type_traits>

namespace kalo::webapid {
namespace {

struct Deinit {
  void operator()(gnutls_x509_crt_t certificate) const { gnutls_x509_crt_deinit(certificate); }
};
using Certificate = std::unique_ptr<std::remove_pointer_t<gnutls_x509_crt_t>, Deinit>;

std::string Small(std::string_view text) {
  std::string small(text);
  for (char& c : small) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return small;
}

// A bad certificate has no names here; the listener refuses to start with it.
std::vector<std::string> NamesOf(const std::string& pem) {
  std::vector<std::string> names;
  gnutls_x509_crt_t raw = nullptr;
  if (gnutls_x509_crt_init(&raw) != 0) return names;
  const Certificate certificate(raw);
  gnutls_datum_t data{};
  std::string text = pem;
  data.data = reinterpret_cast<unsigned char*>(text.data());
  data.size = static_cast<unsigned>(text.size());
  if (gnutls_x509_crt_import(raw, &data, GNUTLS_X509_FMT_PEM) != 0) return names;
  for (unsigned i = 0;; ++i) {
    std::array<char, 256> name{};
    std::size_t size = name.size();
    const int type = gnutls_x509_crt_get_subject_alt_name(raw, i, name.data(), &size, nullptr);
    if (type == GNUTLS_E_SHORT_MEMORY_BUFFER) continue;
    if (type < 0) return names;
    if (type == GNUTLS_SAN_DNSNAME) names.emplace_back(name.data(), size);
  }
}

bool IsPort(std::string_view text) {
  return !text.empty() && text.size() <= 5 &&
         text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool IsAddress(int family, const std::string& text) {
  in6_addr address{};
  return inet_pton(family, text.c_str(), &address) == 1;
}

}  // namespace

HostNames::HostNames(const std::string& certificate, const std::vector<std::string>& configured)
    : names_{"localhost"} {
  for (const std::string& name : NamesOf(certificate)) names_.insert(Small(name));
  for (const std::string& name : configured) names_.insert(Small(name));
}

bool HostNames::Contains(std::string_view host) const {
  if (host.starts_with('[')) {
    const std::size_t end = host.find(']');
    if (end == std::string_view::npos) return false;
    const std::string_view rest = host.substr(end + 1);
    return (rest.empty() || (rest.front() == ':' && IsPort(rest.substr(1)))) &&
           IsAddress(AF_INET6, std::string(host.substr(1, end - 1)));
  }
  const std::size_t colon = host.find(':');
  if (colon != std::string_view::npos && !IsPort(host.substr(colon + 1))) return false;
  const std::string name = Small(host.substr(0, colon));
  if (IsAddress(AF_INET, name) || names_.contains(name)) return true;
  const std::size_t dot = name.find('.');
  return dot != std::string::npos && dot > 0 && names_.contains("*" + name.substr(dot));
}

bool IsFromForeignSite(const std::string& origin, const std::string& site,
                       const std::string& host) {
  if (!site.empty() && site != "same-origin" && site != "none") return true;
  return !origin.empty() && strcasecmp(origin.c_str(), ("https://" + host).c_str()) != 0;
}

}  // namespace kalo::webapid
