#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kalo::webapid {

struct UserRecord {
  std::string hash;  ///< yescrypt, "$y$…"
  std::vector<std::string> groups;
};

/// The users file: {"users":[{"name":…,"hash":"$y$…","groups":[…]}]}.
class UserStore {
 public:
  explicit UserStore(std::string path) : path_(std::move(path)) {}

  /// Reads the file anew each time, so that a change counts at once.
  /// @return empty when there is no such user, or no readable file (which is logged).
  [[nodiscard]] std::optional<UserRecord> Find(const std::string& name) const;

 private:
  std::string path_;
};

/// @throws FormatError
[[nodiscard]] std::map<std::string, UserRecord> ReadUsers(const std::string& path);

}  // namespace kalo::webapid
