#pragma once

#include <stdexcept>
#include <string>

namespace kalo::cli {

/// How the program ends; scripts rely on the numbers.
enum ExitStatus : int {
  kOk = 0,
  kFailed = 1,
  kUsage = 2,
  kRefused = 3,
  kNotReachable = 4,
};

/// Ends a command with a sentence for the user.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  [[nodiscard]] ExitStatus Status() const { return status_; }

 private:
  ExitStatus status_;
};

/// The server refused a request: its sentence, its number, and what to do next.
class Refusal : public Failure {
 public:
  Refusal(int code, const std::string& sentence);
  [[nodiscard]] int Code() const { return code_; }
  /// @return whether signing in again is what it takes.
  [[nodiscard]] bool EndsSession() const { return code_ >= 7003 && code_ <= 7006; }

 private:
  int code_;
};

}  // namespace kalo::cli
