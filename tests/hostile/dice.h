#pragma once

#include <cstddef>
#include <iterator>
#include <random>
#include <string>

namespace kalo::hostile {

/// Falls the same way again for the same seed.
class Dice {
 public:
  explicit Dice(unsigned seed) : random_(seed) {}

  [[nodiscard]] std::size_t Below(std::size_t limit) { return random_() % limit; }
  [[nodiscard]] bool OneIn(unsigned count) { return Below(count) == 0; }
  template <typename Range>
  [[nodiscard]] const auto& Pick(const Range& range) {
    return range[Below(std::size(range))];
  }
  [[nodiscard]] std::string Hex(std::size_t digits) {
    std::string text;
    while (text.size() < digits) text += "0123456789abcdef"[Below(16)];
    return text;
  }

 private:
  std::mt19937 random_;
};

}  // namespace kalo::hostile
