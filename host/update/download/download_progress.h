#pragma once

#include <cstdint>
#include <string>

namespace kalo::download {

/// The download's progress file, as the download itself uses it. The step word is the message by
/// which a download is told to stop: it runs as long as the file says "downloading", and here
/// nothing is written over any other word.
class DownloadProgress {
 public:
  DownloadProgress();

  /// @return whether the download is to go on.
  [[nodiscard]] bool IsWanted() const;
  void SetPercent(int percent) const;
  /// Says how many free bytes a download needs that does not fit.
  void SetNeededBytes(std::uint64_t bytes) const;
  /// All groups are done.
  void Finish() const;
  /// Tells a running download to stop.
  /// @return false when the file cannot be written; true when nothing runs.
  [[nodiscard]] bool Cancel() const;

 private:
  std::string path_;
};

}  // namespace kalo::download
