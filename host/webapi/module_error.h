#pragma once

#include <stdexcept>
#include <string>

namespace kalo::webapi {

/// A module or its description file cannot be used; the text is "file: cause".
class ModuleError : public std::runtime_error {
 public:
  explicit ModuleError(const std::string& text) : std::runtime_error(text) {}
  ModuleError(const std::string& file, const std::string& cause)
      : std::runtime_error(file + ": " + cause) {}
};

}  // namespace kalo::webapi
