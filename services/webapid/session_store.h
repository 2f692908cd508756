#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

namespace kalo::webapid {

/// The secrets of a new session. They exist in the client only; the store keeps their hashes.
struct SessionSecrets {
  std::string cookie;
  std::string token;
};

enum class SessionState {
  kValid,
  kNone,        ///< no cookie was sent
  kEnded,       ///< the cookie belongs to no session that still lives
  kTokenWrong,  ///< the session lives, but the request did not bring its token
};

struct SessionCheck {
  SessionState state = SessionState::kNone;
  std::string user;
  std::string credential;  ///< what Create was given
};

/// Sessions, one file each, so that they survive a restart of the server. A session ends when it is
/// idle too long, when it is too old, or by End.
class SessionStore {
 public:
  struct Options {
    std::filesystem::path folder;  ///< made 0700 when it is not there
    std::chrono::seconds idle{900};
    std::chrono::seconds absolute{43200};
    std::function<std::int64_t()> now;  ///< seconds since 1970; the wall clock, as files outlive us
  };

  /// Reads the sessions that still live and removes the files of others.
  /// @throws std::filesystem::filesystem_error
  explicit SessionStore(Options options);

  /// @param credential changes when the session must end, e.g. a digest of the password's hash
  /// @throws std::system_error when the session cannot be kept
  [[nodiscard]] SessionSecrets Create(const std::string& user, const std::string& credential);

  /// Finds the session of a request and counts the request as activity.
  /// @param cookie, token as the client sent them; empty when it did not
  [[nodiscard]] SessionCheck Check(const std::string& cookie, const std::string& token);

  /// As Check, but no activity: for those who only listen.
  [[nodiscard]] SessionCheck Look(const std::string& cookie) const;

  void End(const std::string& cookie);

 private:
  struct Session {
    std::string user;
    std::string credential;
    std::string token_hash;
    std::int64_t created = 0;
    std::int64_t used = 0;
    std::int64_t stored_used = 0;  // as the file says; it is rewritten only now and then
  };
  using Sessions = std::map<std::string, Session>;  // by the cookie's hash

  void Load(const std::filesystem::path& file);
  void Store(const std::string& id, Session& session);
  void KeepUse(const std::string& id, Session& session);
  void Remove(Sessions::iterator session);
  void RemoveOldest();
  [[nodiscard]] bool Lives(const Session& session) const;
  [[nodiscard]] std::filesystem::path FileOf(const std::string& id) const;

  Options options_;
  Sessions sessions_;
};

}  // namespace kalo::webapid
