// The version-2 update feed: one JSON document for a model, a build and a rollout group, fetched by
// the router's download program. The document is not signed: it can only offer.

#include "webapi/patch/update_feed.h"

#include <json/reader.h>
#include <json/value.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <random>
#include <sstream>
#include <string_view>

#include "platform/core/key_value.h"
#include "platform/core/process.h"
#include "platform/paths.h"
#include "webapi/key_value.h"
#include "webapi/log.h"
#include "webapi/patch/promotion.h"
#include "webapi/program_flags.h"

namespace KALO::MESH::Webapi {
namespace {

constexpr const char* kDefaultServer = "https://update.kalo.example/autoupdate/v2/getList";
constexpr const char* kRollingGroup = "rolling_group_id";
constexpr unsigned long kRollingGroups = 10000;
// Far above any real document, far below what would hurt a router.
constexpr std::size_t kLargestDocument = std::size_t{1} << 20;

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

bool Parse(std::istream& stream, Json::Value& document) {
  std::string text(kLargestDocument + 1, '\0');
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(stream.gcount()));
  if (text.size() > kLargestDocument) return false;
  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  std::istringstream source(text);
  try {
    return Json::parseFromStream(builder, source, &document, nullptr);
  } catch (const std::exception&) {
    return false;  // nested too deep
  }
}

bool Read(const std::string& path, Json::Value& document) {
  std::ifstream stream(path);
  if (!stream.is_open()) {
    Log(LOG_ERR, __LINE__, "Failed to open RSS V2 file: %s", path.c_str());
    return false;
  }
  if (!Parse(stream, document)) {
    Log(LOG_ERR, __LINE__, "Failed to parse RSS V2 JSON");
    return false;
  }
  return true;
}

// JsonCpp throws when it is asked for a member of anything but an object.
bool HasMember(const Json::Value& value, const char* name) {
  return value.isObject() && value.isMember(name);
}

// @return the document's first item, the only one that counts; null when there is none.
const Json::Value* FirstItem(const Json::Value& document) {
  if (!HasMember(document, "channel") || !HasMember(document["channel"], "item")) {
    Log(LOG_ERR, __LINE__, "RSS V2 JSON format error: missing channel or item");
    return nullptr;
  }
  const Json::Value& items = document["channel"]["item"];
  if (!items.isArray() || items.empty()) {
    Log(LOG_DEBUG, __LINE__, "No update available from RSS V2 (empty item list)");
    return nullptr;
  }
  return &items[0];
}

bool IsUsable(const Json::Value& item) {
  // The model must be named, but the server that was asked for it is trusted to have looked.
  for (const char* name : {"title", "BuildNum", "phase", "model"}) {
    if (HasMember(item, name)) continue;
    Log(LOG_ERR, __LINE__, "RSS V2 item missing required fields");
    return false;
  }
  if (!item["title"].isString()) {
    Log(LOG_ERR, __LINE__, "RSS V2 item missing required fields");
    return false;
  }
  const Json::Value& build = item["BuildNum"];
  if (!build.isInt()) {
    Log(LOG_ERR, __LINE__, "RSS V2 item is invalid BuildNum");
    return false;
  }
  if (!IsPromotion(build.asInt())) {
    Log(LOG_ERR, __LINE__, "RSS V2 item is invalid or smaller than 1.4 version: %d", build.asInt());
    return false;
  }
  return true;
}

}  // namespace

std::optional<FeedOffer> AskUpdateFeed(const std::string& unique, int build) {
  const std::string url = Url(unique, build);
  const FeedFile file;
  Json::Value document;
  if (!Fetch(url, file.Path()) || !Read(file.Path(), document)) return std::nullopt;
  const Json::Value* item = FirstItem(document);
  if (item == nullptr || !IsUsable(*item)) return std::nullopt;
  const Json::Value& phase = (*item)["phase"];
  return FeedOffer{"hbx", (*item)["title"].asString(), phase.isString() && phase == "Beta"};
}

}  // namespace KALO::MESH::Webapi
