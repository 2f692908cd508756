#pragma once

#include <sys/mount.h>

#include <fstream>
#include <stdexcept>
#include <string>

namespace kalo::test {

/// An authority that the whole machine trusts, for as long as the object lives: the transfer
/// library has a built-in folder of them. For tests in a private root.
class PublicAuthority {
 public:
  explicit PublicAuthority(const std::string& certificate) {
    if (mount("none", kFolder, "tmpfs", 0, nullptr) != 0) throw std::runtime_error(kFolder);
    std::ofstream(std::string(kFolder) + "/public.pem") << certificate;
  }
  PublicAuthority(const PublicAuthority&) = delete;
  PublicAuthority& operator=(const PublicAuthority&) = delete;
  ~PublicAuthority() { umount(kFolder); }

 private:
  static constexpr const char* kFolder = "/etc/ssl/certs";
};

}  // namespace kalo::test
