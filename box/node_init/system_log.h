#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

#include "host/core/unique_fd.h"

namespace kalo::box {

/// The node's system log: takes what programs send to /dev/log and keeps it as it came, one line a
/// message ("<11>Nov 20 10:00:00 webapid-worker: text"), in a file. A full file is moved to
/// "<file>.1", over an older one.
class SystemLog {
 public:
  /// @param limit bytes of the file before it is moved away
  /// @throws std::system_error
  SystemLog(const std::filesystem::path& socket, std::filesystem::path file, std::uint64_t limit);

  /// Readable when a message waits.
  [[nodiscard]] int Fd() const { return socket_.Get(); }
  /// Takes all messages that wait.
  void Take();
  /// Adds a line of the first process itself, which must not wait on its own socket.
  void Write(int priority, std::string_view text);

 private:
  void Append(std::string_view line);
  void OpenFile();

  UniqueFd socket_;
  std::filesystem::path path_;
  std::uint64_t limit_;
  UniqueFd file_;
  std::uint64_t size_ = 0;
};

}  // namespace kalo::box
