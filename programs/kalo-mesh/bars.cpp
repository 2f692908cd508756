#include "programs/kalo-mesh/bars.h"

#include <algorithm>
#include <ostream>

#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

constexpr std::size_t kNoteWidth = 26;
constexpr std::size_t kLeastBar = 10;
constexpr int kStepOfLines = 10;

std::string PercentText(int percent) {
  std::string text = std::to_string(percent) + "%";
  return std::string(4 - std::min<std::size_t>(4, text.size()), ' ') + text;
}

}  // namespace

std::string DrawBar(const Bar& bar, std::size_t label_width, std::size_t width) {
  const std::size_t fixed = label_width + kNoteWidth + 9;
  const std::size_t length = std::max(kLeastBar, width > fixed ? width - fixed : 0);
  const auto percent = static_cast<std::size_t>(std::clamp(bar.percent, 0, 100));
  const std::size_t full = length * percent / 100;
  const std::string line = Fit(Printable(bar.label), label_width) + " [" + std::string(full, '#') +
                           std::string(length - full, '-') + "] " +
                           PercentText(static_cast<int>(percent)) + " " + Printable(bar.note);
  return Fit(line, width);
}

void BarBoard::Show(std::vector<Bar> bars) {
  const std::vector<Bar> before = std::move(bars_);
  for (std::size_t i = 0; i < bars.size() && i < before.size(); ++i) {
    bars[i].percent = std::max(bars[i].percent, before[i].percent);
  }
  bars_ = std::move(bars);
  if (terminal_) {
    Redraw();
  } else {
    PrintChanges(before);
  }
}

void BarBoard::Redraw() {
  std::size_t label_width = 0;
  for (const Bar& bar : bars_) label_width = std::max(label_width, Columns(Printable(bar.label)));
  const std::size_t width = TerminalWidth() - 1;
  std::string text;
  if (drawn_ > 0) text += "\033[" + std::to_string(drawn_) + "A";
  for (const Bar& bar : bars_) text += "\r" + DrawBar(bar, label_width, width) + "\033[K\n";
  drawn_ = bars_.size();
  out_ << text << std::flush;
}

void BarBoard::PrintChanges(const std::vector<Bar>& before) {
  for (std::size_t i = 0; i < bars_.size(); ++i) {
    const Bar& bar = bars_[i];
    const bool known = i < before.size();
    if (known && bar.note == before[i].note &&
        bar.percent / kStepOfLines == before[i].percent / kStepOfLines) {
      continue;
    }
    out_ << Printable(bar.label) << ": " << bar.percent << "% " << Printable(bar.note) << "\n";
  }
  out_ << std::flush;
}

}  // namespace kalo::cli
