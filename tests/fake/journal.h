#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fake {

/// One ordered list of what happened: platform calls, answers and log lines. It lies in memory that
/// a forked child shares, so that what the child does stands in it too.
class Journal {
 public:
  Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;
  ~Journal();

  void Add(std::string_view line);
  void Clear();
  [[nodiscard]] std::vector<std::string> Lines() const;
  /// @return the lines that begin so.
  [[nodiscard]] std::vector<std::string> Lines(std::string_view prefix) const;

 private:
  struct Shared;
  Shared* shared_;
};

}  // namespace fake
