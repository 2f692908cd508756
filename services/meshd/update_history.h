#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "services/meshd/update_record.h"

namespace kalo::meshd {

/// The updates that have ended, the last fifty, in a file that administrators' APIs read:
/// docs/files.md has its members.
class UpdateHistory {
 public:
  /// Reads the file; one that is damaged counts as empty, which the log tells. One that cannot be
  /// read is read later, and never replaced before that.
  explicit UpdateHistory(const std::string& folder);

  /// Adds an update that has ended, once. One that could not be added is tried again with the next
  /// call.
  /// @param now seconds since 1970: its end, as nobody was there to see an earlier one
  void Note(const UpdateRecord& record, std::int64_t now);

 private:
  // @return false when there is a file that cannot be read now.
  [[nodiscard]] bool Load();

  std::string path_;
  Json::Value updates_{Json::arrayValue};
  bool failing_ = false;
  bool loaded_ = false;
};

}  // namespace kalo::meshd
