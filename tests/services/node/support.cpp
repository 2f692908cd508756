#include "tests/services/node/support.h"

#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "host/update/patch_format/description.h"
#include "platform/paths.h"
#include "services/node/slots.h"

namespace kalo::node {
namespace fs = std::filesystem;

void WriteText(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadText(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void NodeTest::SetUp() {
  for (const char* folder :
       {KALO::paths::kSlots, KALO::paths::kStagedPatch, KALO::paths::kPatchKeys,
        KALO::paths::kUploads, "/run/kalo", "/usr/kalo/sbin"}) {
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  fs::remove(KALO::paths::kFullPatchLocator);
  WriteText(fs::path(KALO::paths::kSlots) / "a/VERSION",
            patch::WriteDescription({kModel, kRunning, 76000, 0}));
  fs::create_symlink("a", fs::path(KALO::paths::kSlots) / "current");
  WriteText(KALO::paths::kDefaults, std::string("unique=\"") + kModel + "\"\n");
  WriteText("/etc/kalo/node.conf", "id=\"3\"\nname=\"Attic\"\n");
  WriteText(KALO::paths::kBootId, "0123456789abcdef0123456789abcdef\n");
  WriteText(fs::path(KALO::paths::kPatchKeys) / "maker.pem", key_.PublicPem());
  Boot();
}

void NodeTest::Boot() {
  const fs::path slot = slots::ChooseAtBoot();
  fs::remove_all("/run/kalo");
  fs::create_directories("/run/kalo");
  fs::copy_file(slot / "VERSION", KALO::paths::kRunningVersion,
                fs::copy_options::overwrite_existing);
}

std::string NodeTest::MakePatch(const std::string& version, const std::string& unique,
                                int build) const {
  const fs::path sources = "/tmp/sources";
  fs::remove_all(sources);
  WriteText(sources / "payload/sbin/webapid", "#!/bin/sh\n" + std::string(100000, '#'));
  fs::permissions(sources / "payload/sbin/webapid", fs::perms(0755));
  WriteText(sources / "payload/share/filler", std::string(1 << 20, 'x'));
  WriteText(sources / "updater", "#!/bin/sh\n");
  std::string path = std::string(KALO::paths::kUploads) + "/next.pat";
  patch::MakePatch({{unique, version, build, 0}, sources / "payload", sources / "updater", ""},
                   &key_, path);
  fs::permissions(path, fs::perms(0600));
  return path;
}

std::string NodeTest::MakeSmallPatch(const std::string& version, int build, int nano) const {
  const fs::path sources = "/tmp/small-sources";
  fs::remove_all(sources);
  WriteText(sources / "payload/share/filler", "small");
  WriteText(sources / "payload/share/new/file", "new");
  WriteText(sources / "updater", "#!/bin/sh\n");
  std::string path = std::string(KALO::paths::kUploads) + "/small.pat";
  patch::MakePatch({{kModel, version, build, nano}, sources / "payload", sources / "updater", ""},
                   &key_, path);
  fs::permissions(path, fs::perms(0600));
  return path;
}

}  // namespace kalo::node
