#include "programs/kalo-patch/feed_tree.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <stdexcept>

#include "host/core/file_io.h"
#include "host/core/unique_fd.h"
#include "host/update/feed/offers.h"
#include "host/update/feed/version_two.h"
#include "programs/kalo-patch/file_hash.h"

namespace kalo::patch_tool {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kLargestDocument = std::size_t{4} << 20;
constexpr mode_t kPublic = 0644;
constexpr std::chrono::seconds kLockPatience{30};

[[noreturn]] void Fail(const fs::path& path, const std::string& what) {
  throw std::runtime_error(path.native() + ": " + what);
}

fs::path ListPath(const std::string& unique) {
  return fs::path("v1") / unique / "list.json";
}

// The signature of the list that is being replaced. Its name is never served. List and signature
// are two files: a publication that breaks off between them is made good by publishing again.
fs::path KeptSignature(const std::string& unique) {
  return fs::path("v1") / unique / ".list.json.sig";
}

// Removes a half copied file unless it got its name.
class HalfFile {
 public:
  explicit HalfFile(fs::path path) : path_(std::move(path)) {}
  HalfFile(const HalfFile&) = delete;
  HalfFile& operator=(const HalfFile&) = delete;
  ~HalfFile() {
    std::error_code ignored;
    fs::remove(path_, ignored);
  }
  [[nodiscard]] const fs::path& Path() const { return path_; }

 private:
  fs::path path_;
};

void Sync(const fs::path& path) {
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd || fsync(fd.Get()) != 0) Fail(path, std::strerror(errno));
}

}  // namespace

FeedTree::FeedTree(const fs::path& folder) : folder_(folder) {
  fs::create_directories(folder_);
  lock_ = FileLock::TakeWithin(folder_ / ".publish.lock", kLockPatience);
  if (!lock_) Fail(folder_, std::string("cannot be locked: ") + std::strerror(errno));
}

std::optional<feed::ReleaseList> FeedTree::ReadList(const std::string& unique,
                                                    const patch::KeyRing& keys) const {
  const fs::path path = folder_ / ListPath(unique);
  if (!fs::exists(path)) return std::nullopt;
  const std::optional<std::string> text = ReadFile(path, kLargestDocument);
  const std::optional<std::string> signature = ReadFile(path.native() + ".sig", kLargestDocument);
  if (!text || !signature) Fail(path, "cannot be read with its signature");
  const std::string kept = ReadFile(folder_ / KeptSignature(unique), kLargestDocument).value_or("");
  if (!keys.Verifies(*text, *signature) && !keys.Verifies(*text, kept)) {
    Fail(path, "is not signed with this key");
  }
  return feed::ParseReleaseList(*text, path);
}

void FeedTree::PutPatch(const fs::path& from, const feed::ListedFile& file) const {
  const fs::path target = folder_ / file.path;
  // One that is there keeps its time: routers go on with a download that broke off.
  if (fs::exists(target) && fs::file_size(target) == file.size && HashOf(target) == file.sha256) {
    return;
  }
  fs::create_directories(target.parent_path());
  const HalfFile half(target.parent_path() / ("." + target.filename().native() + ".part"));
  fs::copy_file(from, half.Path(), fs::copy_options::overwrite_existing);
  fs::permissions(half.Path(), static_cast<fs::perms>(kPublic));
  // Before the list that names it.
  Sync(half.Path());
  fs::rename(half.Path(), target);
  Sync(target.parent_path());
}

void FeedTree::PutList(const feed::ReleaseList& list, const patch::SigningKey& key) const {
  const std::string text = feed::WriteReleaseList(list);
  const fs::path path = ListPath(list.unique);
  // What no router could read must not be signed.
  if (text.size() > kLargestDocument) Fail(path, "is larger than routers take");
  (void)feed::ParseReleaseList(text, path);
  // Made anew: the one that is there may be of a publication that broke off.
  const std::optional<std::string> before = ReadFile(folder_ / path, kLargestDocument);
  if (before) Put(KeptSignature(list.unique), key.Sign(*before));
  Put(path.native() + ".sig", key.Sign(text));
  Put(path, text);
  // Last: what they offer is looked up in the list.
  PutDocuments(list);
}

void FeedTree::PutDocuments(const feed::ReleaseList& list) const {
  std::set<std::int32_t> builds(list.field_builds.begin(), list.field_builds.end());
  for (const feed::Release& release : list.releases) builds.insert(release.build);
  for (const std::int32_t build : builds) {
    const fs::path folder = fs::path("v2") / list.unique / std::to_string(build);
    for (const char group : feed::kAllGroups) {
      for (const bool beta : {true, false}) {
        const auto offers = feed::VersionTwoOffers(list, build, group, beta);
        Put(folder / (std::string(1, group) + (beta ? ".json" : ".stable.json")),
            feed::VersionTwoDocument(offers, list.unique));
      }
    }
  }
  Put("v2/empty.json", feed::VersionTwoDocument({}, ""));
}

// What did not change keeps its time, and with it what caches know it by.
void FeedTree::Put(const fs::path& path, const std::string& contents) const {
  const fs::path target = folder_ / path;
  if (ReadFile(target, kLargestDocument) == contents) return;
  fs::create_directories(target.parent_path());
  if (!WriteFileAtomic(target, contents, kPublic)) Fail(target, std::strerror(errno));
}

}  // namespace kalo::patch_tool
