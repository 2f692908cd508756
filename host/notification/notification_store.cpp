#include "host/notification/notification_store.h"

#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <limits>
#include <optional>
#include <stdexcept>

#include "host/core/file_io.h"
#include "host/core/file_lock.h"
#include "host/core/log.h"
#include "host/core/object_reader.h"
#include "platform/paths.h"

namespace kalo {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kMostNotifications = 100;
constexpr std::size_t kLargestStore = std::size_t{1} << 20;
constexpr std::chrono::seconds kLockPatience{5};
constexpr int kHighest = std::numeric_limits<std::int32_t>::max();

[[noreturn]] void Fail(const std::string& path) {
  throw std::runtime_error(path + ": " + std::strerror(errno));
}

FileLock TakeLock() {
  const fs::path lock = KALO::paths::kNotificationLock;
  std::error_code ignored;
  fs::create_directories(lock.parent_path(), ignored);
  auto taken = FileLock::TakeWithin(lock, kLockPatience);
  if (!taken) Fail(lock);
  return std::move(*taken);
}

/// The file's contents.
struct Store {
  std::int32_t last_id = 0;
  std::vector<Notification> list;  ///< oldest first
};

Notification ReadOne(const Json::Value& value, const std::string& name) {
  ObjectReader reader(value, name);
  Notification one;
  one.id = reader.Integer("id", 1, kHighest);
  one.time = reader.LargeInteger("time", 0, std::numeric_limits<std::int64_t>::max());
  one.source = reader.Text("source");
  one.topic = reader.Text("topic");
  one.recipient = reader.Text("to");
  one.count = reader.Integer("count", 0, kHighest);
  one.text = reader.Text("text");
  return one;
}

Store Parse(const std::string& text, const std::string& name) {
  const Json::Value root = ParseJsonText(text, name);
  ObjectReader reader(root, name);
  Store store;
  store.last_id = reader.Integer("last_id", 0, kHighest - 1);
  for (const Json::Value& value : reader.Array("notifications")) {
    store.list.push_back(ReadOne(value, name + ": notification"));
  }
  return store;
}

// A file that is damaged is given up; one that cannot be read now may be well the next time.
Store Read(const fs::path& path) {
  const std::optional<std::string> text = ReadFile(path, kLargestStore);
  if (!text && errno == ENOENT) return {};
  if (!text && !IsNothingThere(errno)) Fail(path);
  try {
    if (!text) Fail(path);
    return Parse(*text, path);
  } catch (const std::runtime_error& e) {
    Log(LOG_ERR, "the notifications are lost: %s", e.what());
    return {};
  }
}

void Write(const fs::path& path, const Store& store) {
  Json::Value root(Json::objectValue);
  root["last_id"] = store.last_id;
  root["notifications"] = Json::Value(Json::arrayValue);
  for (const Notification& one : store.list) {
    root["notifications"].append(ToJson(one));
  }
  std::error_code ignored;
  fs::create_directories(path.parent_path(), ignored);
  if (!WriteFileAtomic(path, root.toStyledString(), 0600)) Fail(path);
}

// @return whether there was anything to remove.
template <typename Predicate>
bool Remove(const fs::path& path, Predicate matches) {
  const FileLock lock = TakeLock();
  Store store = Read(path);
  if (std::erase_if(store.list, matches) == 0) return false;
  Write(path, store);
  return true;
}

}  // namespace

Json::Value ToJson(const Notification& notification) {
  Json::Value value(Json::objectValue);
  value["id"] = notification.id;
  value["time"] = static_cast<Json::Int64>(notification.time);
  value["source"] = notification.source;
  value["topic"] = notification.topic;
  value["to"] = notification.recipient;
  value["count"] = notification.count;
  value["text"] = notification.text;
  return value;
}

NotificationStore::NotificationStore() : path_(KALO::paths::kNotifications) {}

void NotificationStore::Raise(Notification notification) const {
  const FileLock lock = TakeLock();
  Store store = Read(path_);
  std::erase_if(store.list, [&](const Notification& one) {
    return one.source == notification.source && one.topic == notification.topic &&
           one.recipient == notification.recipient;
  });
  notification.id = ++store.last_id;
  notification.time = static_cast<std::int64_t>(std::time(nullptr));
  store.list.push_back(std::move(notification));
  if (store.list.size() > kMostNotifications) {
    const auto surplus = static_cast<std::ptrdiff_t>(store.list.size() - kMostNotifications);
    store.list.erase(store.list.begin(), store.list.begin() + surplus);
  }
  Write(path_, store);
}

void NotificationStore::Clear(const std::string& source, const std::string& topic,
                              const std::string& recipient) const {
  (void)Remove(path_, [&](const Notification& one) {
    return one.source == source && one.topic == topic && one.recipient == recipient;
  });
}

bool NotificationStore::Dismiss(std::int32_t id) const {
  return Remove(path_, [id](const Notification& one) { return one.id == id; });
}

std::vector<Notification> NotificationStore::List() const {
  const FileLock lock = TakeLock();
  std::vector<Notification> list = Read(path_).list;
  std::reverse(list.begin(), list.end());
  return list;
}

}  // namespace kalo
