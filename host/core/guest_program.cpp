#include "host/core/guest_program.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>

#include "host/core/file_io.h"
#include "host/core/unique_fd.h"

namespace kalo {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kPiece = 16384;

// Copies what is there now.
// @return the bytes copied, 0 at the end of the output; -1 with errno set.
ssize_t CopySome(int from, int to) {
  std::array<char, kPiece> piece{};
  const ssize_t got = read(from, piece.data(), piece.size());
  if (got < 0) return errno == EINTR ? CopySome(from, to) : -1;
  return WriteAll(to, {piece.data(), static_cast<std::size_t>(got)}) ? got : -1;
}

bool Watch(pid_t pid, int output, int copy, const GuestLimits& limits) {
  const auto deadline = steady_clock::now() + limits.whole;
  const UniqueFd leader(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (!leader) return false;
  std::array<pollfd, 2> watched = {{{leader.Get(), POLLIN, 0}, {output, POLLIN, 0}}};
  std::size_t copied = 0;
  // Its output may go on after the program's own end, as long as somebody holds the pipe.
  while (watched[0].fd >= 0 || watched[1].fd >= 0) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
    if (left.count() <= 0) {
      errno = ETIMEDOUT;
      return false;
    }
    const int ready = poll(watched.data(), watched.size(), static_cast<int>(left.count()));
    if (ready < 0 && errno != EINTR) return false;
    if (ready <= 0) continue;
    if (watched[0].revents != 0) watched[0].fd = -1;
    if (watched[1].fd < 0 || watched[1].revents == 0) continue;
    const ssize_t got = CopySome(output, copy);
    if (got < 0) return false;
    if (got == 0) watched[1].fd = -1;
    copied += static_cast<std::size_t>(got);
    if (copied > limits.output_bytes) {
      errno = EFBIG;
      return false;
    }
  }
  return true;
}

}  // namespace

bool IsGuestProgram(const std::string& path) {
  const std::string plain = std::filesystem::path(path).lexically_normal();
  return !plain.starts_with("/bin/") && !plain.starts_with("/usr/kalo/");
}

bool WaitForGuest(pid_t pid, int output, int copy, const GuestLimits& limits) {
  const bool ended = Watch(pid, output, copy, limits);
  const int error = errno;
  // The leader is not reaped yet, so nobody else can have its number.
  kill(-pid, SIGKILL);
  errno = error;
  return ended;
}

}  // namespace kalo
