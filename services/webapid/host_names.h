#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kalo::webapid {

/// The names by which browsers may call the administration port. A page of another site could have
/// its own name lead to the router's address and would then be of the router's origin; so a name
/// must be one that the owner or the certificate gave.
class HostNames {
 public:
  /// @param certificate PEM; its DNS names count, also those with a "*" as first label
  /// @param configured further names
  HostNames(const std::string& certificate, const std::vector<std::string>& configured);

  /// @param host a Host header: name or address, with or without a port
  /// @return whether it is an IP address, "localhost" or one of the names.
  [[nodiscard]] bool Contains(std::string_view host) const;

 private:
  std::set<std::string> names_;  // in small letters
};

/// Returns whether a request was sent by a page of another site.
/// @param origin, site the headers Origin and Sec-Fetch-Site; empty when they were not sent, as by
///        clients that are no browsers
/// @param host the Host header
[[nodiscard]] bool IsFromForeignSite(const std::string& origin, const std::string& site,
                                     const std::string& host);

}  // namespace kalo::webapid
