#include "host/update/feed/feed_client.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/update/feed/list_check.h"
#include "host/update/https_get.h"
#include "host/update/patch_format/description.h"
#include "host/update/patch_format/manifest.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "platform/update/update_util.h"

namespace kalo::feed {
namespace fs = std::filesystem;
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kDefaultAddress = "https://update.kalo.example";
constexpr std::uint64_t kLargestList = std::uint64_t{4} << 20;
constexpr std::size_t kLongestNumber = 16;

// Remembers the highest number of a model's list, so that nobody can show an old list again.
class KnownNumber {
 public:
  explicit KnownNumber(const std::string& unique)
      : path_(fs::path(KALO::paths::kFeedState) / unique) {}

  // @throws std::runtime_error when there is one that cannot be read: an old list might pass.
  [[nodiscard]] std::int32_t Get() const {
    const std::optional<std::string> text = ReadFile(path_, kLongestNumber);
    if (!text && !IsNothingThere(errno))
      throw std::system_error(errno, std::generic_category(), path_);
    std::int32_t number = 0;
    if (text) std::from_chars(text->data(), text->data() + text->size(), number);
    return number;
  }

  void Set(std::int32_t number) const {
    std::error_code ignored;
    fs::create_directories(path_.parent_path(), ignored);
    if (WriteFileAtomic(path_, std::to_string(number) + "\n", 0600)) return;
    Log(LOG_WARNING, "update list: cannot write %s: %s", path_.c_str(), std::strerror(errno));
  }

 private:
  fs::path path_;
};

std::string Fetch(const std::string& url, std::uint64_t limit, const FetchBudget& budget) {
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(budget.deadline - Clock::now());
  if (left <= milliseconds::zero()) throw std::runtime_error("the time for it is over");
  HttpsLimits limits;
  limits.whole = std::min<milliseconds>(limits.whole, left);
  limits.bytes = limit;
  limits.is_cancelled = budget.is_cancelled;
  FetchResult result;
  std::optional<std::string> text = HttpsGetText(url, limits, result);
  if (!text) throw std::runtime_error(result.error);
  return std::move(*text);
}

ReleaseList FetchAndCheck(const std::string& unique, const std::string& url,
                          const FetchBudget& budget) {
  const KnownNumber known(unique);
  const auto keys = patch::KeyRing::Load(KALO::paths::kPatchKeys);
  std::string text;
  std::string signature;
  for (int fetched = 0; fetched < kListTries && !keys.Verifies(text, signature); ++fetched) {
    text = Fetch(url, kLargestList, budget);
    signature = Fetch(url + ".sig", patch::kSignatureBytes, budget);
  }
  const ListRules rules{unique, known.Get(), static_cast<std::int64_t>(std::time(nullptr))};
  ReleaseList list = CheckReleaseList(text, signature, keys, rules);
  if (list.number > rules.known_number) known.Set(list.number);
  return list;
}

}  // namespace

std::string BaseAddress() {
  constexpr std::size_t kLongestAddress = 256;
  std::array<char, kLongestAddress> buffer{};
  const int length =
      KLIBCFileGetKeyValue(KALO::paths::kDefaults, "rss_server", buffer.data(), buffer.size(), 0);
  std::string address = length > 0 ? buffer.data() : kDefaultAddress;
  while (address.ends_with('/')) address.pop_back();
  return address;
}

Audience ThisRouter() {
  std::array<char, kLongestNumber> buffer{};
  const int length = KLIBCFileGetKeyValue(KALO::paths::kConfiguration, "rolling_group_id",
                                          buffer.data(), buffer.size(), 0);
  Audience audience;
  if (length > 0) {
    // As the check reads it, so that both name the same group.
    const unsigned long number = std::strtoul(buffer.data(), nullptr, 10);
    audience.position = RolloutPosition(static_cast<std::uint32_t>(number % kWholeShare));
  }
  audience.takes_beta =
      !KALO::MESH::SDK::Upgrade::UpdateUtil::IsAutoUpdating() ||
      KLIBCFileCheckKeyValue(KALO::paths::kConfiguration, "update_channel", "beta", 0) == 1;
  return audience;
}

std::optional<ReleaseList> FetchReleaseList(const std::string& unique, const FetchBudget& budget) {
  if (!patch::IsModelName(unique)) {
    Log(LOG_ERR, "update list: \"%s\" is no model's name", unique.c_str());
    return std::nullopt;
  }
  const std::string url = BaseAddress() + "/v1/" + unique + "/list.json";
  try {
    return FetchAndCheck(unique, url, budget);
  } catch (const std::exception& e) {
    Log(LOG_ERR, "update list of %s: %s: %s", unique.c_str(), url.c_str(), e.what());
    return std::nullopt;
  }
}

}  // namespace kalo::feed
