#include <syslog.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <limits>
#include <optional>
#include <string_view>

#include "platform/update/version.h"
#include "webapi/exceptions.h"
#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

// Reads "<number> [<word> <number>]" as scanf's "%d %*s %d" does, but a number that does not fit
// into 32 bits counts as none.
class TailScanner {
 public:
  explicit TailScanner(std::string_view text) : rest_(text) {}

  std::optional<int> Number() {
    SkipBlanks();
    const bool plus = rest_.starts_with('+') && !rest_.starts_with("+-");
    int number = 0;
    const char* begin = rest_.data() + (plus ? 1 : 0);
    const auto [end, error] = std::from_chars(begin, rest_.data() + rest_.size(), number);
    if (error != std::errc()) return std::nullopt;
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return number;
  }

  bool SkipWord() {
    SkipBlanks();
    const auto end = std::find_if(rest_.begin(), rest_.end(), IsBlank);
    const auto length = static_cast<std::size_t>(end - rest_.begin());
    rest_.remove_prefix(length);
    return length > 0;
  }

 private:
  static bool IsBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

  void SkipBlanks() {
    const auto word = std::find_if_not(rest_.begin(), rest_.end(), IsBlank);
    rest_.remove_prefix(static_cast<std::size_t>(word - rest_.begin()));
  }

  std::string_view rest_;
};

bool ScanOsVersion(const std::string& head, std::string& os_version) {
  std::array<char, 512> word{};
  if (std::sscanf(head.c_str(), "VXM %511s", word.data()) != 1) return false;
  os_version = word.data();
  return true;
}

bool ScanNumbers(std::string_view tail, int& build, int& nano) {
  TailScanner scanner(tail);
  const std::optional<int> first = scanner.Number();
  if (!first) return false;
  build = *first;
  nano = scanner.SkipWord() ? scanner.Number().value_or(0) : 0;
  return true;
}

// The difference in 32 bits; where it would not fit, the nearest number of the same sign.
int Difference(int a, int b) {
  const std::int64_t difference = static_cast<std::int64_t>(a) - b;
  return static_cast<int>(std::clamp<std::int64_t>(difference, std::numeric_limits<int>::min(),
                                                   std::numeric_limits<int>::max()));
}

}  // namespace

// By value: the signature is part of the module's contract.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int UpgradeHandler::CompareVersion(std::string a, std::string b) {
  int build_a = 0;
  int nano_a = 0;
  if (SDK::Utils::GetBuildNum(a, build_a, nano_a) < 0) {
    throw WebapiException("Input Version Incorrect");
  }
  int build_b = 0;
  int nano_b = 0;
  if (SDK::Utils::GetBuildNum(b, build_b, nano_b) < 0) {
    throw WebapiException("Input Version Incorrect");
  }
  if (build_a != build_b) return build_a > build_b ? 1 : -1;
  return Difference(nano_a, nano_b);
}

bool UpgradeHandler::ParseVersion(const std::string& text, std::string& os_version, int& build,
                                  int& nano) {
  // Without a hyphen both halves are the whole text, which no text passes: it would have to begin
  // with the word and with a number.
  const std::size_t hyphen = text.find('-');
  const std::string head = text.substr(0, hyphen);
  const std::string tail = text.substr(hyphen + 1);
  if (ScanOsVersion(head, os_version) && ScanNumbers(tail, build, nano)) {
    // At error priority, although nothing failed: support staff read versions off this line.
    Log(LOG_ERR, __LINE__, "Parsed %s-%d %d", os_version.c_str(), build, nano);
    return true;
  }
  os_version.clear();
  build = 0;
  nano = 0;
  return false;
}

bool UpgradeHandler::IsAllMeshVersionEqual(const std::vector<UpdateNode>& nodes) {
  if (nodes.size() < 2) return true;
  const int build = nodes.front().GetBuildNum();
  const int nano = nodes.front().GetNanoNum();
  for (const UpdateNode& node : nodes) {
    if (node.GetBuildNum() == build && node.GetNanoNum() == nano) continue;
    Log(LOG_ERR, __LINE__, "Found version not equal: [version: %d-%d] vs [version %d-%d]",
        node.GetBuildNum(), node.GetNanoNum(), build, nano);
    return false;
  }
  return true;
}

}  // namespace KALO::MESH::Webapi
