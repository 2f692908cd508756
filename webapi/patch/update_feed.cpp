// The version-2 update feed: one JSON document for a model, a build and a rollout group, fetched by
// the router's download program.

#include "webapi/patch/update_feed.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <utility>

#include "platform/core/key_value.h"
#include "platform/core/process.h"
#include "platform/paths.h"
#include "webapi/key_value.h"
#include "webapi/log.h"
#include "webapi/program_flags.h"

namespace KALO::MESH::Webapi {
namespace {

constexpr const char* kDefaultServer = "https://update.kalo.example/autoupdate/v2/getList";
constexpr const char* kRollingGroup = "rolling_group_id";
constexpr unsigned long kRollingGroups = 10000;

// Where a document is fetched to. Two checks in the same second share the name.
class FeedFile {
 public:
  FeedFile() : path_("/tmp/rss_v2_" + std::to_string(std::time(nullptr)) + ".json") {}
  FeedFile(const FeedFile&) = delete;
  FeedFile& operator=(const FeedFile&) = delete;
  ~FeedFile() { unlink(path_.c_str()); }
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

std::string Server() {
  constexpr std::size_t kLongestServer = 256;
  KeyValue configured = ReadKeyValue<kLongestServer>(paths::kDefaults, "rss_server_v2");
  if (configured.length > 0) {
    Log(LOG_DEBUG, __LINE__, "Using RSS server URL from kaloinfo.conf: %s",
        configured.text.c_str());
    return std::move(configured.text);
  }
  Log(LOG_DEBUG, __LINE__, "Using default RSS server URL: %s", kDefaultServer);
  return kDefaultServer;
}

// The router's number in staged rollouts, drawn once: it must be the same at every check.
unsigned long RollingGroup() {
  constexpr std::size_t kLongestNumber = 16;
  const KeyValue stored = ReadKeyValue<kLongestNumber>(paths::kConfiguration, kRollingGroup);
  if (stored.length >= 1) return std::strtoul(stored.text.c_str(), nullptr, 10);
  // Spreads routers over groups and guards nothing: the time is seed enough.
  // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp)
  std::minstd_rand random(static_cast<std::minstd_rand::result_type>(std::time(nullptr)));
  random.discard(1);  // the first number hardly differs from one second to the next
  const unsigned long group = random() % kRollingGroups;
  if (KLIBCINFOSetKeyValue(kRollingGroup, std::to_string(group).c_str()) < 0) {
    Log(LOG_ERR, __LINE__, "Failed to save rolling_group_id");
  }
  return group;
}

std::string Url(const std::string& unique, int build) {
  const std::string server = Server();
  return server + "?unique=" + unique + "&build_num=" + std::to_string(build) +
         "&include_beta=true&group_id=" + std::to_string(RollingGroup() % 10);
}

bool Fetch(const std::string& url, const std::string& path) {
  Log(LOG_DEBUG, __LINE__, "Fetching RSS V2 from URL: %s", url.c_str());
  // Only a program that could not be run ends here: what it could not fetch leaves an empty file,
  // which is no document.
  if (KLIBCExecl(paths::kFetchProgram, kQuietProgram, "--timeout=30", "--tries=1", "-O",
                 path.c_str(), url.c_str(), nullptr) < 0) {
    Log(LOG_ERR, __LINE__, "Failed to get RSS V2 with url: %s", url.c_str());
    return false;
  }
  return true;
}

}  // namespace

std::optional<FeedOffer> AskUpdateFeed(const std::string& unique, int build) {
  const std::string url = Url(unique, build);
  const FeedFile file;
  return Fetch(url, file.Path()) ? ReadFeedDocument(file.Path()) : std::nullopt;
}

}  // namespace KALO::MESH::Webapi
