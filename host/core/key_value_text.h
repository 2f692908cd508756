#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kalo {

inline constexpr std::size_t kMaxKeyLength = 64;
inline constexpr std::size_t kMaxValueLength = 8191;

/// The text of a key=value file, apart from any file: what the KLIBCFile*KeyValue calls and the
/// readers of key=value members inside a patch have in common. How one line is written and read
/// stands in key_value_line.h.
class KeyValueText {
 public:
  explicit KeyValueText(std::string text) : text_(std::move(text)) {}

  /// @return the value of the last line of this key, of any length; empty when there is none.
  [[nodiscard]] std::optional<std::string> Get(std::string_view key) const;
  /// Replaces the key's lines by one, at the place of the last, or appends one. Other lines stay
  /// byte for byte (a last line without its end gets one before something is appended).
  /// @return false when key or value break a limit, the key is not a name, or the value has a NUL;
  ///         the text then is as it was.
  [[nodiscard]] bool Set(std::string_view key, std::string_view value);
  /// Removes every line of this key.
  /// @return whether the key stood there.
  bool Remove(std::string_view key);
  [[nodiscard]] const std::string& Text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace kalo
