#pragma once

#include <unistd.h>

#include <utility>

namespace kalo {

/// Owns one file descriptor.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { Reset(); }

  [[nodiscard]] int Get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  /// Gives the descriptor away; the caller owns it.
  [[nodiscard]] int Release() { return std::exchange(fd_, -1); }
  void Reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace kalo
