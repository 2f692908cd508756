#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kalo::webapid {

/// Reduces the file name that a client sent to its last component; both kinds of slash divide.
/// @return empty when nothing safe is left: no text, ".", "..", control bytes, no UTF-8, or more
///         than 255 bytes.
[[nodiscard]] std::optional<std::string> SafeFileName(std::string_view sent);

/// @return whether this can be the name of a parameter: 1 to 256 bytes of UTF-8 without control
///         bytes.
[[nodiscard]] bool IsParameterName(std::string_view name);

/// @return whether the server alone may set this parameter: its name, as it is or with its percent
///         escapes resolved, ends in "_file_tmp".
[[nodiscard]] bool IsReservedParameter(std::string_view name);

/// @return whether a file part may have this name: it ends in "_file" and has something before it.
[[nodiscard]] bool IsFileField(std::string_view name);

}  // namespace kalo::webapid
