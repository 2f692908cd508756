#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

namespace kalo {

/// Says which file, which member and what is wrong with it.
class FormatError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads one JSON object of a file that a person wrote: every member has the right type and range,
/// and there is none besides those asked for. All members throw FormatError.
class ObjectReader {
 public:
  /// @param value borrowed; outlives the reader
  /// @param name  names the object in error texts, e.g. "/etc/kalo/webapid.json"
  ObjectReader(const Json::Value& value, std::string name);

  /// @param fallback value of a missing member; without one the member must be there
  [[nodiscard]] std::string Text(const std::string& key,
                                 const std::optional<std::string>& fallback = std::nullopt);
  [[nodiscard]] int Integer(const std::string& key, int lowest, int highest,
                            std::optional<int> fallback = std::nullopt);
  /// @return a number that may be larger than an int.
  [[nodiscard]] std::int64_t LargeInteger(const std::string& key, std::int64_t lowest,
                                          std::int64_t highest);
  [[nodiscard]] bool Boolean(const std::string& key, bool fallback);
  /// @return the array; must be there.
  [[nodiscard]] const Json::Value& Array(const std::string& key);
  /// @return the object, or an empty one when it is missing.
  [[nodiscard]] const Json::Value& Object(const std::string& key);

  /// Refuses members that nobody asked for. Call it last.
  void Finish() const;
  /// @throws FormatError naming the object and, unless empty, the member.
  [[noreturn]] void Fail(const std::string& key, const std::string& cause) const;

 private:
  const Json::Value* Find(const std::string& key);

  const Json::Value& value_;
  std::string name_;
  std::set<std::string> known_;
};

/// Parses a whole file's text; what the reader above is for.
/// @throws FormatError
[[nodiscard]] Json::Value ParseJsonText(const std::string& text, const std::string& name);

/// Reads and parses a file of at most 1 MiB.
/// @throws FormatError
[[nodiscard]] Json::Value ReadJsonFile(const std::string& path);

}  // namespace kalo
