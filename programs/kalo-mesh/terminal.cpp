#include "programs/kalo-mesh/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>

#include "host/core/unique_fd.h"
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

// Holds back the signals that end the program as long as it lives; then they do.
class HeldSignals {
 public:
  HeldSignals() {
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
      struct sigaction action {};
      const bool is_ignored =
          sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
      if (!is_ignored) sigaddset(&held, signal);
    }
    sigprocmask(SIG_BLOCK, &held, &before_);
    fd_ = UniqueFd(signalfd(-1, &held, SFD_CLOEXEC));
  }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
  ~HeldSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

  // @return whether a line was typed; false when such a signal came first.
  [[nodiscard]] bool WaitForLine() const {
    std::array<pollfd, 2> ready = {{{fd_.Get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    while (poll(ready.data(), ready.size(), -1) < 0) {
      if (errno != EINTR) return false;
    }
    return ready[0].revents == 0;
  }

 private:
  sigset_t before_{};
  UniqueFd fd_;
};

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
  if (isatty(STDIN_FILENO) == 1) {
    std::cerr << prompt << std::flush;
    const HeldSignals held;  // goes last: the echo is on again when the program ends
    const NoEcho silence;
    if (held.WaitForLine()) std::getline(std::cin, password);
    std::cerr << "\n";
  } else {
    std::getline(std::cin, password);
  }
  if (password.empty()) throw Failure(kUsage, "no password given");
  return password;
}

}  // namespace kalo::cli
