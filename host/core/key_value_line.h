#pragma once

#include <optional>
#include <string>
#include <string_view>

/// One line of a key=value file.
///
/// A key is 1 to 64 ASCII letters, digits, '_', '-' and '.', and starts with none of the last two.
/// It stands at the very start of its line, followed by '=' at once. Any other line is a comment
/// or unknown, and kept.
///
/// Written is always  key="value"  with a backslash before each  \ " $ `  and each control byte
/// (1 to 31, and 127) as \0ooo: backslash, 0, its three octal digits. Bytes from 128 on stand as
/// they are. So a value never breaks its line, and a shell that sources the file runs nothing of
/// it and sees the value itself, except that control bytes stay as \0ooo: that is what
/// printf '%b' of every POSIX shell turns back.
///
/// Read are, with blanks after a closing quote ignored:
///   key="value"  the escapes above; any other backslash stands for itself, as in a shell
///   key='value'  nothing is special up to the next quote
///   key=value    the rest of the line as it is, with leading and trailing blanks
/// A quote that is not closed, or has something behind it, makes the line one of the third form.
namespace kalo {

[[nodiscard]] bool IsKey(std::string_view text);

/// @param line one line without its end
/// @return what stands behind "key="; empty when it is no line of this key.
[[nodiscard]] std::optional<std::string_view> RawValue(std::string_view line, std::string_view key);

/// @param raw what stands behind "key="
/// @return the value that it means.
[[nodiscard]] std::string DecodeValue(std::string_view raw);

/// @param value any bytes but NUL
/// @return the line with its end.
[[nodiscard]] std::string EncodeLine(std::string_view key, std::string_view value);

}  // namespace kalo
