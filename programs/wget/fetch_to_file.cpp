#include "programs/wget/fetch_to_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "host/core/file_io.h"
#include "host/core/unique_fd.h"
#include "host/update/feed/feed_client.h"
#include "host/update/feed/version_two.h"

namespace kalo::fetch {
namespace {

std::string SystemError(const std::string& path) {
  return path + ": " + std::generic_category().message(errno);
}

UniqueFd MakeFile(const std::string& path) {
  if (unlink(path.c_str()) != 0 && errno != ENOENT) return UniqueFd();
  return UniqueFd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
}

// What a router asks the version-2 feed.
struct FeedQuery {
  std::string unique;
  std::int32_t build = 0;
  bool beta = false;
};

std::optional<std::string_view> ValueOf(std::string_view query, std::string_view key) {
  while (!query.empty()) {
    const std::string_view pair = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(pair.size() + 1, query.size()));
    if (pair.starts_with(key) && pair.substr(key.size()).starts_with('=')) {
      return pair.substr(key.size() + 1);
    }
  }
  return std::nullopt;
}

// By its query, not by its address: no setting of an address turns the check off.
std::optional<FeedQuery> ReadFeedQuery(std::string_view url) {
  const std::size_t mark = url.find('?');
  if (mark == std::string_view::npos) return std::nullopt;
  const std::string_view query = url.substr(mark + 1);
  const auto unique = ValueOf(query, "unique");
  const auto build = ValueOf(query, "build_num");
  if (!unique || !build) return std::nullopt;
  FeedQuery found{std::string(*unique), 0, ValueOf(query, "include_beta") == "true"};
  std::from_chars(build->data(), build->data() + build->size(), found.build);
  return found;
}

// Keeps of a version-2 document what the signed list vouches for.
ExitStatus KeepVouched(const FeedQuery& query, const feed::FetchBudget& budget, std::string& text,
                       std::string& error) {
  const auto items = feed::ReadVersionTwoDocument(text);
  if (!items) {
    error = "the answer is not a version-2 document";
    return kRefused;
  }
  std::vector<const feed::Release*> offers;
  std::optional<feed::ReleaseList> list;
  if (!items->empty()) {
    list = feed::FetchReleaseList(query.unique, budget);
    if (!list) {
      error = "no signed list of " + query.unique + " vouches for the answer";
      return kUntrusted;
    }
    feed::Audience router = feed::ThisRouter();
    router.takes_beta = router.takes_beta && query.beta;
    offers = feed::VouchedOffers(*items, *list, query.build, router);
  }
  text = feed::VersionTwoDocument(offers, query.unique);
  return kOk;
}

ExitStatus StatusOf(FetchOutcome outcome) {
  switch (outcome) {
    case FetchOutcome::kRefused:
      return kRefused;
    case FetchOutcome::kUntrusted:
      return kUntrusted;
    default:
      return kNetwork;
  }
}

}  // namespace

ExitStatus FetchToFile(const std::string& url, const std::string& path, const HttpsLimits& limits,
                       std::string& error) {
  error.clear();
  const UniqueFd file = MakeFile(path);
  if (!file) {
    error = SystemError(path);
    return kCannotWrite;
  }
  const feed::FetchBudget budget{std::chrono::steady_clock::now() + limits.whole};
  FetchResult result;
  std::optional<std::string> text = HttpsGetText(url, limits, result);
  if (!text) {
    error = url + ": " + result.error;
    return StatusOf(result.outcome);
  }
  if (const auto query = ReadFeedQuery(url)) {
    const ExitStatus status = KeepVouched(*query, budget, *text, error);
    if (status != kOk) {
      error = url + ": " + error;
      return status;
    }
  }
  if (WriteAll(file.Get(), *text)) return kOk;
  error = SystemError(path);
  if (ftruncate(file.Get(), 0) != 0) error += ", and half of the answer stays there";
  return kCannotWrite;
}

}  // namespace kalo::fetch
