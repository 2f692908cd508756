#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kalo::cli {

/// @return the text with control characters replaced, so that what a server or a node sends cannot
///         steer the terminal.
[[nodiscard]] std::string Printable(std::string_view text);

/// @return whether standard output is a terminal that can be redrawn.
[[nodiscard]] bool IsTerminal();

/// @return its width in columns; 80 when unknown.
[[nodiscard]] std::size_t TerminalWidth();

/// @return the text cut or filled with blanks to a width in columns (one per UTF-8 character).
[[nodiscard]] std::string Fit(std::string_view text, std::size_t width);

/// @return how many columns the text takes.
[[nodiscard]] std::size_t Columns(std::string_view text);

/// Asks for a password without showing it; reads a line where standard input is no terminal.
/// @throws Failure when there is none.
[[nodiscard]] std::string ReadPassword(const std::string& prompt);

}  // namespace kalo::cli
