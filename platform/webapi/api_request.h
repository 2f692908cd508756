#pragma once

#include <json/value.h>

#include <optional>
#include <string>

namespace KALO {

/// The parameters of one request. A module only ever holds a pointer that the server gave it: the
/// data members are the server's business.
class APIRequest {
 public:
  /// @param parameters a JSON object; anything else counts as an empty one
  explicit APIRequest(Json::Value parameters);

  /// @return the parameter's value; empty when it is missing or not a boolean. The text "true" is
  /// not
  ///         one: who reads a form turns its fields into the values that they stand for.
  [[nodiscard]] std::optional<bool> GetAndCheckBool(const std::string& name) const;

  /// @return the parameter's text; empty when it is missing or not a string.
  [[nodiscard]] std::optional<std::string> GetAndCheckString(const std::string& name) const;

  /// @return the parameter's JSON value as it came, or the fallback when it is missing.
  [[nodiscard]] Json::Value GetParam(const std::string& name, const Json::Value& fallback) const;

 private:
  Json::Value parameters_;
};

}  // namespace KALO
