#pragma once

#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kalo::webapid {

struct UserRecord {
  std::string hash;  ///< yescrypt, "$y$…"
  std::vector<std::string> groups;
  std::string credential;  ///< a digest of the hash: another one means another password
};

using UserRecords = std::map<std::string, UserRecord>;  // by name

/// The users file: {"users":[{"name":…,"hash":"$y$…","groups":[…]}]}.
class UserStore {
 public:
  explicit UserStore(std::string path) : path_(std::move(path)) {}

  /// A change of the file counts at once: it is looked at each time, and read when it is another
  /// one than before.
  /// @return null when there is no such user, or no readable file (which is logged); good until the
  ///         next call.
  [[nodiscard]] const UserRecord* Find(const std::string& name);

 private:
  // What tells one state of a file from the next.
  struct State {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};
    [[nodiscard]] bool operator==(const State& other) const;
  };

  [[nodiscard]] std::optional<State> Look() const;
  void Read();

  std::string path_;
  std::optional<State> state_;  // that users_ were read from; empty: not to be relied on
  UserRecords users_;
};

/// @throws FormatError
[[nodiscard]] UserRecords ReadUsers(const std::string& path);

}  // namespace kalo::webapid
