#include "programs/kalo-mesh/time_text.h"

#include <array>
#include <ctime>

namespace kalo::cli {

std::string TimeText(const Json::Value& value) {
  if (!value.isInt64()) return "";
  const std::time_t time = value.asInt64();
  std::tm local{};
  std::array<char, 32> text{};
  if (localtime_r(&time, &local) == nullptr) return "";
  const std::size_t length = std::strftime(text.data(), text.size(), "%F %R", &local);
  return {text.data(), length};
}

}  // namespace kalo::cli
