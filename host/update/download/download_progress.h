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
  /// @return whether a download that had begun to fetch was cancelled: the uploads to nodes that
  ///         follow each fetch end then. A "canceled" without a version is left by a cancel while
  ///         no download ran, and says nothing of an upload by hand.
  [[nodiscard]] bool IsCancelled() const;
  void SetPercent(int percent) const;
  /// Says how many free bytes a download needs that does not fit.
  void SetNeededBytes(std::uint64_t bytes) const;
  /// Ends the download, as all groups are done.
  /// @return whether the file still said "downloading": false if the download was cancelled before.
  [[nodiscard]] bool Finish() const;
  /// Tells a running download to stop.
  /// @return false when the file cannot be written; true when nothing runs.
  [[nodiscard]] bool Cancel() const;

 private:
  std::string path_;
};

}  // namespace kalo::download
