#pragma once

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/update/feed/release_list.h"
#include "host/update/patch_format/patch_writer.h"
#include "host/update/patch_format/sha256.h"
#include "host/update/patch_format/signing_key.h"
#include "platform/paths.h"
#include "tests/host/update/temporary_folder.h"

namespace kalo::test {

/// What a feed serves, signed by a key that this router trusts. For tests in a private root: writes
/// the router's configuration.
class TestFeed {
 public:
  TestFeed() {
    namespace fs = std::filesystem;
    fs::remove_all(KALO::paths::kFeedState);
    fs::remove_all(KALO::paths::kPatchKeys);
    fs::create_directories(KALO::paths::kPatchKeys);
    std::ofstream(fs::path(KALO::paths::kPatchKeys) / "test.pem") << key_.PublicPem();
    (void)folder_.Write("in/data", std::string(70000, 'd'));
    (void)folder_.Write("updater", "update", 0755);
  }

  /// Says where the router looks for its feed.
  static void Configure(const std::string& address) {
    std::ofstream(KALO::paths::kDefaults) << "rss_server=\"" << address << "\"\n";
  }

  [[nodiscard]] const patch::SigningKey& Key() const { return key_; }
  [[nodiscard]] std::string Root() const { return folder_.Path("feed"); }

  /// Makes and signs a patch.
  /// @return its bytes.
  [[nodiscard]] std::string MakePatch(const std::string& unique, const std::string& version,
                                      int build, int nano = 0,
                                      const patch::SigningKey* key = nullptr) const {
    const std::string path = folder_.Path("made.patch");
    patch::MakePatch(
        {{unique, version, build, nano}, folder_.Path("in"), folder_.Path("updater"), ""},
        key != nullptr ? key : &key_, path);
    return Contents(path);
  }

  /// @return a release that names these bytes.
  [[nodiscard]] static feed::Release Describe(const std::string& version, int build, int nano,
                                              const std::string& bytes) {
    patch::Sha256 hash;
    hash.Update(bytes);
    const std::string number = std::to_string(build) + "-" + std::to_string(nano);
    return {version,
            build,
            nano,
            "",
            std::string(feed::kAllGroups),
            {"patches/" + number + ".patch", bytes.size(), hash.Finish()}};
  }

  /// Writes a model's list.
  void PutList(const feed::ReleaseList& list) const {
    PutList(list, key_.Sign(feed::WriteReleaseList(list)));
  }
  void PutList(const feed::ReleaseList& list, const std::string& signature) const {
    const std::string path = "feed/v1/" + list.unique + "/list.json";
    (void)folder_.Write(path, feed::WriteReleaseList(list));
    (void)folder_.Write(path + ".sig", signature);
  }
  void PutFile(const feed::Release& release, const std::string& bytes) const {
    (void)folder_.Write("feed/" + release.file.path, bytes);
  }

 private:
  patch::SigningKey key_ = patch::SigningKey::Generate();
  TemporaryFolder folder_;
};

}  // namespace kalo::test
