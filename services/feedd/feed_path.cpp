#include "services/feedd/feed_path.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

namespace kalo::feedd {
namespace {

constexpr std::string_view kEndpoint = "/autoupdate/v2/getList";
constexpr std::array<std::string_view, 3> kFolders = {"/v1/", "/v2/", "/patches/"};
constexpr std::size_t kLongestModel = 63;

bool IsPlainByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '.' || c == '+' || c == '-';
}

// One name of a path: no dot at its begin, so neither ".." nor a hidden file.
bool IsPlainName(std::string_view name) {
  return !name.empty() && !name.starts_with('.') &&
         std::all_of(name.begin(), name.end(), IsPlainByte);
}

bool IsPlainPath(std::string_view path) {
  for (;;) {
    const std::size_t slash = path.find('/');
    if (!IsPlainName(path.substr(0, slash))) return false;
    if (slash == std::string_view::npos) return true;
    path.remove_prefix(slash + 1);
  }
}

bool IsBuild(std::string_view text) {
  std::int32_t build = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), build);
  return error == std::errc() && end == text.data() + text.size() && build >= 0 &&
         std::to_string(build) == text;
}

std::string Document(const QueryValue& query) {
  const std::string unique = query("unique").value_or("");
  const std::string build = query("build_num").value_or("");
  const std::string group = query("group_id").value_or("");
  const bool is_digit = group.size() == 1 && group[0] >= '0' && group[0] <= '9';
  if (!IsPlainName(unique) || unique.size() > kLongestModel || !IsBuild(build) || !is_digit) {
    return kEmptyDocument;
  }
  const char* kind = query("include_beta") == "true" ? ".json" : ".stable.json";
  return "v2/" + unique + "/" + build + "/" + group + kind;
}

}  // namespace

bool IsVersionTwo(std::string_view path) {
  return path == kEndpoint;
}

std::optional<std::string> FeedPath(std::string_view path, const QueryValue& query) {
  if (IsVersionTwo(path)) return Document(query);
  const bool in_feed = std::any_of(kFolders.begin(), kFolders.end(), [&](std::string_view folder) {
    return path.starts_with(folder);
  });
  if (!in_feed || !IsPlainPath(path.substr(1))) return std::nullopt;
  return std::string(path.substr(1));
}

}  // namespace kalo::feedd
