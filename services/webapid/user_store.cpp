#include "services/webapid/user_store.h"

#include <sys/stat.h>
#include <syslog.h>

#include <ctime>
#include <tuple>

#include "host/core/log.h"
#include "host/core/object_reader.h"
#include "services/webapid/digest.h"

namespace kalo::webapid {
namespace {

// File times stand still for some milliseconds: two changes shortly after each other may look like
// one. What was read so soon after a change is read again.
constexpr std::time_t kSettled = 2;  // seconds

UserRecord ReadUser(ObjectReader& reader) {
  UserRecord user;
  user.hash = reader.Text("hash");
  if (!user.hash.starts_with("$y$")) reader.Fail("hash", "is no yescrypt hash");
  user.credential = Sha256Hex(user.hash);
  for (const Json::Value& group : reader.Array("groups")) {
    if (!group.isString()) reader.Fail("groups", "must hold texts");
    user.groups.push_back(group.asString());
  }
  return user;
}

}  // namespace

UserRecords ReadUsers(const std::string& path) {
  const Json::Value file = ReadJsonFile(path);
  ObjectReader reader(file, path);
  UserRecords users;
  for (const Json::Value& entry : reader.Array("users")) {
    ObjectReader user(entry, path + ": user");
    const std::string name = user.Text("name");
    if (name.empty()) user.Fail("name", "is empty");
    if (!users.emplace(name, ReadUser(user)).second) user.Fail("name", "stands twice");
    user.Finish();
  }
  reader.Finish();
  return users;
}

bool UserStore::State::operator==(const State& other) const {
  const auto all = [](const State& state) {
    return std::tie(state.device, state.inode, state.size, state.modified.tv_sec,
                    state.modified.tv_nsec, state.changed.tv_sec, state.changed.tv_nsec);
  };
  return all(*this) == all(other);
}

std::optional<UserStore::State> UserStore::Look() const {
  struct stat file = {};
  if (lstat(path_.c_str(), &file) != 0) return std::nullopt;
  return State{file.st_dev, file.st_ino, file.st_size, file.st_mtim, file.st_ctim};
}

void UserStore::Read() {
  state_.reset();
  users_.clear();
  // Looked at before it is read: a change in between is then seen the next time.
  const std::optional<State> state = Look();
  try {
    users_ = ReadUsers(path_);
    if (state && std::time(nullptr) - state->changed.tv_sec > kSettled) state_ = state;
  } catch (const FormatError& e) {
    Log(LOG_ERR, "%s", e.what());
  }
}

const UserRecord* UserStore::Find(const std::string& name) {
  if (!state_ || Look() != state_) Read();
  const auto user = users_.find(name);
  return user == users_.end() ? nullptr : &user->second;
}

}  // namespace kalo::webapid
