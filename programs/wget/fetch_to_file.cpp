#include "programs/wget/fetch_to_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/unique_fd.h"

namespace kalo::fetch {
namespace {

std::string SystemError(const std::string& path) {
  return path + ": " + std::generic_category().message(errno);
}

UniqueFd MakeFile(const std::string& path) {
  if (unlink(path.c_str()) != 0 && errno != ENOENT) return UniqueFd();
  return UniqueFd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
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
  FetchResult result;
  const std::optional<std::string> text = HttpsGetText(url, limits, result);
  if (!text) {
    error = url + ": " + result.error;
    return StatusOf(result.outcome);
  }
  if (WriteAll(file.Get(), *text)) return kOk;
  error = SystemError(path);
  if (ftruncate(file.Get(), 0) != 0) error += ", and half of the answer stays there";
  return kCannotWrite;
}

}  // namespace kalo::fetch
