#include "programs/kalo-mesh/table.h"

#include <algorithm>
#include <ostream>

#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {

void PrintTable(std::ostream& out, const std::vector<std::string>& head,
                const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::vector<std::string>> lines = {head};
  lines.insert(lines.end(), rows.begin(), rows.end());
  std::vector<std::size_t> widths(head.size(), 0);
  for (auto& line : lines) {
    line.resize(head.size());
    for (std::size_t i = 0; i < line.size(); ++i) {
      line[i] = Printable(line[i]);
      widths[i] = std::max(widths[i], Columns(line[i]));
    }
  }
  for (const auto& line : lines) {
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
      text += i + 1 < line.size() ? Fit(line[i], widths[i]) + "  " : line[i];
    }
    out << text.substr(0, text.find_last_not_of(' ') + 1) << "\n";
  }
}

}  // namespace kalo::cli
