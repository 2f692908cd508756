#pragma once

#include <json/value.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// What administrators are told: a list kept over reboots, written by the notification tool and by
/// the update library, read through the web API.
namespace kalo {

struct Notification {
  std::int32_t id = 0;    ///< rises; a notification that is raised again gets a new one
  std::int64_t time = 0;  ///< seconds since 1970
  std::string source;     ///< who raised it
  std::string topic;      ///< what it is about
  std::string recipient;  ///< "@administrators"
  std::int32_t count = 0;
  std::string text;  ///< one sentence for people
};

/// @return it as the store and the web API write it.
[[nodiscard]] Json::Value ToJson(const Notification& notification);

/// The list in its file. Every operation takes the store's lock, and throws std::runtime_error when
/// the store cannot be used. A damaged file counts as an empty list, after one log line.
class NotificationStore {
 public:
  NotificationStore();

  /// Adds a notification; an earlier one with the same source, topic and recipient goes. The oldest
  /// go when there are too many. Id and time are the store's.
  void Raise(Notification notification) const;
  /// Removes what was raised with this source and topic for this recipient, if anything was.
  void Clear(const std::string& source, const std::string& topic,
             const std::string& recipient) const;
  /// @return whether there was one with this id, which is gone now.
  [[nodiscard]] bool Dismiss(std::int32_t id) const;
  /// @return all, the newest first.
  [[nodiscard]] std::vector<Notification> List() const;

 private:
  std::filesystem::path path_;
};

}  // namespace kalo
