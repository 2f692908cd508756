#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace kalo::cli {

struct Bar {
  std::string label;
  int percent = 0;   ///< 0 to 100; what is shown never falls
  std::string note;  ///< behind the bar
};

/// @return one bar as a line of exactly this width.
[[nodiscard]] std::string DrawBar(const Bar& bar, std::size_t label_width, std::size_t width);

/// Shows bars: redrawn in place on a terminal, otherwise a line for each change worth one.
class BarBoard {
 public:
  BarBoard(std::ostream& out, bool terminal) : out_(out), terminal_(terminal) {}

  /// @param bars the same bars in the same order in every call
  void Show(std::vector<Bar> bars);

 private:
  void Redraw();
  void PrintChanges(const std::vector<Bar>& before);

  std::ostream& out_;
  bool terminal_;
  std::vector<Bar> bars_;
  std::size_t drawn_ = 0;
};

}  // namespace kalo::cli
