#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "host/webapi/module_description.h"

namespace kalo::webapid {

/// The part of a request's path that names a row: /webapi/<api>/<version>/<method>.
struct RowName {
  std::string api;
  int version = 0;
  std::string method;
};

/// @return empty when the path is not of that form.
[[nodiscard]] std::optional<RowName> ParseRowPath(std::string_view path);

/// The described rows of every module, as the front knows them.
class RowTable {
 public:
  /// Adds a module's rows; one that stands there already stays and is logged.
  void Add(const webapi::ModuleDescription& module);
  /// @return null when no module describes the row.
  [[nodiscard]] const webapi::RowDescription* Find(const RowName& name) const;
  /// @return the modules' recovery programs.
  [[nodiscard]] const std::vector<std::filesystem::path>& RecoveryPrograms() const {
    return recovery_;
  }

 private:
  std::map<std::tuple<std::string, int, std::string>, webapi::RowDescription> rows_;
  std::vector<std::filesystem::path> recovery_;
};

/// Reads the description files; what is wrong with one is logged and costs its own rows.
[[nodiscard]] RowTable ReadRowTable(const std::filesystem::path& folder);

}  // namespace kalo::webapid
