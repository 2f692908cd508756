#include "programs/kalo-mesh/terminal.h"

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "programs/kalo-mesh/failure.h"

namespace kalo::cli {
namespace {

bool IsContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

// The control characters of UTF-8's second block, U+0080 to U+009F.
bool IsWideControl(std::string_view rest) {
  return rest.size() > 1 && rest[0] == '\xC2' && static_cast<unsigned char>(rest[1]) < 0xA0U;
}

// Switches the echo off as long as it lives.
class NoEcho {
 public:
  NoEcho() {
    if (tcgetattr(STDIN_FILENO, &before_) != 0) return;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    changed_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) == 0;
  }
  NoEcho(const NoEcho&) = delete;
  NoEcho& operator=(const NoEcho&) = delete;
  ~NoEcho() {
    if (changed_) tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
  }

 private:
  termios before_{};
  bool changed_ = false;
};

}  // namespace

std::string Printable(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20U || byte == 0x7FU) {
      result += '?';
    } else if (IsWideControl(text.substr(i))) {
      result += '?';
      ++i;
    } else {
      result += text[i];
    }
  }
  return result;
}

bool IsTerminal() {
  const char* kind = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && kind != nullptr && std::string_view(kind) != "dumb";
}

std::size_t TerminalWidth() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return size.ws_col;
}

std::size_t Columns(std::string_view text) {
  std::size_t columns = 0;
  for (const char c : text) columns += IsContinuation(c) ? 0 : 1;
  return columns;
}

std::string Fit(std::string_view text, std::size_t width) {
  std::string result;
  std::size_t columns = 0;
  for (const char c : text) {
    if (!IsContinuation(c) && ++columns > width) break;
    result += c;
  }
  result.append(width - std::min(width, columns), ' ');
  return result;
}

std::string ReadPassword(const std::string& prompt) {
  std::string password;
  const bool asks = isatty(STDIN_FILENO) == 1;
  if (asks) std::cerr << prompt << std::flush;
  {
    const NoEcho silence;
    std::getline(std::cin, password);
  }
  if (asks) std::cerr << "\n";
  if (password.empty()) throw Failure(kUsage, "no password given");
  return password;
}

}  // namespace kalo::cli
