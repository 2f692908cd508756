#pragma once

#include <string>

#include "services/meshd/update_record.h"

namespace kalo::meshd {

/// Where the record of the running or last update outlives the service.
class UpdateStore {
 public:
  /// @param folder is made when it does not exist
  explicit UpdateStore(const std::string& folder);

  /// @return the record; a fresh one when none was saved, or when what was saved is damaged (the
  /// log
  ///         tells).
  /// @throws std::system_error when it cannot be read now: an update may be running.
  [[nodiscard]] UpdateRecord Load();

  /// Saves a record that differs from the last one saved or loaded.
  /// @return false when it could not be saved; the file then is as it was. The log tells once.
  [[nodiscard]] bool Save(const UpdateRecord& record);

 private:
  std::string path_;
  std::string saved_;
  bool failing_ = false;
};

}  // namespace kalo::meshd
