#include "services/webapid/password_check.h"

#include <crypt.h>

#include <memory>

#include "services/webapid/digest.h"

namespace kalo::webapid {
namespace {

// What is hashed against when there is no such user: the default cost, as hashes are made with.
constexpr const char* kNobodysSetting = "$y$j9T$WQ3pMqeNkEMU7mRPBW8Dt/";

std::string Hash(const std::string& password, const std::string& setting) {
  const auto data = std::make_unique<crypt_data>();  // 32 KiB
  const char* hash = crypt_r(password.c_str(), setting.c_str(), data.get());
  return hash == nullptr ? "*" : hash;
}

}  // namespace

bool IsPasswordRight(const UserRecords& users, const std::string& user,
                     const std::string& password) {
  const auto found = users.find(user);
  const bool known = found != users.end();
  const std::string wanted = known ? found->second.hash : kNobodysSetting;
  const std::string hash = Hash(password, wanted);
  // A failed crypt begins with '*', which no hash of the file does.
  return EqualInConstantTime(hash, wanted) && known && !hash.starts_with('*');
}

}  // namespace kalo::webapid
