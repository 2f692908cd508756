#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/core/file_lock.h"

namespace kalo {

/// How far one transfer is, for those who show it. Nothing depends on it: what cannot be noted is
/// not noted.
struct Transfer {
  std::string name;  ///< "download-<model>", "node-<id>"
  std::uint64_t done = 0;
  std::uint64_t whole = 0;
};

/// The note of one transfer: a file that lives as long as this object. It is locked, so that the
/// file of a process that was killed is known for what it is.
class TransferNote {
 public:
  /// @param name as in Transfer, no path
  explicit TransferNote(const std::string& name);
  TransferNote(const TransferNote&) = delete;
  TransferNote& operator=(const TransferNote&) = delete;
  ~TransferNote();

  /// Writes four times a second at most.
  void Moved(std::uint64_t done, std::uint64_t whole);

 private:
  std::string path_;
  std::optional<FileLock> lock_;
  std::chrono::steady_clock::time_point written_;
};

/// @return the transfers under way, by name.
[[nodiscard]] std::vector<Transfer> TransfersUnderWay();

}  // namespace kalo
