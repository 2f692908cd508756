#include "services/webapid/user_store.h"

#include <syslog.h>

#include "host/core/log.h"
#include "host/core/object_reader.h"

namespace kalo::webapid {
namespace {

UserRecord ReadUser(ObjectReader& reader) {
  UserRecord user;
  user.hash = reader.Text("hash");
  if (!user.hash.starts_with("$y$")) reader.Fail("hash", "is no yescrypt hash");
  for (const Json::Value& group : reader.Array("groups")) {
    if (!group.isString()) reader.Fail("groups", "must hold texts");
    user.groups.push_back(group.asString());
  }
  return user;
}

}  // namespace

std::map<std::string, UserRecord> ReadUsers(const std::string& path) {
  const Json::Value file = ReadJsonFile(path);
  ObjectReader reader(file, path);
  std::map<std::string, UserRecord> users;
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

std::optional<UserRecord> UserStore::Find(const std::string& name) const {
  try {
    const auto users = ReadUsers(path_);
    const auto user = users.find(name);
    if (user == users.end()) return std::nullopt;
    return user->second;
  } catch (const FormatError& e) {
    Log(LOG_ERR, "%s", e.what());
    return std::nullopt;
  }
}

}  // namespace kalo::webapid
