#include "programs/kalo-confine/verified_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/regular_file.h"
#include "host/core/unique_fd.h"
#include "host/update/patch_format/key_ring.h"
#include "host/update/patch_format/sha256.h"
#include "platform/paths.h"

namespace kalo::confine {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

UniqueFd OpenFolder(int parent, const std::string& name) {
  UniqueFd folder(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) ThrowErrno("opening " + name);
  return folder;
}

// Opens each folder of the path by itself, so that none of them can be a link.
std::string ReadListed(int root, const fs::path& path, std::size_t limit) {
  UniqueFd folder = OpenFolder(root, ".");
  for (const fs::path& part : path.parent_path()) folder = OpenFolder(folder.Get(), part);
  const auto file = RegularFile::Open(folder.Get(), path.filename());
  auto text = file ? file->ReadAll(limit) : std::nullopt;
  if (!text) ThrowErrno("reading " + path.string());
  return *std::move(text);
}

void Write(const fs::path& path, std::string_view text, mode_t mode) {
  const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file || !WriteAll(file.Get(), text) || fchmod(file.Get(), mode) != 0) {
    ThrowErrno("writing " + path.string());
  }
}

}  // namespace

std::vector<patch::ListedMember> ReadSignedList(int folder) {
  const std::string text = ReadListed(folder, patch::kManifestName, patch::kLargestManifest);
  const std::string signature = ReadListed(folder, patch::kSignatureName, patch::kSignatureBytes);
  const auto keys = patch::KeyRing::Load(KALO::paths::kPatchKeys);
  if (!keys.Verifies(text, signature)) {
    throw std::runtime_error("no known key made the signature of its manifest");
  }
  std::vector<patch::ListedMember> members = patch::ParseManifest(text).members;
  std::erase_if(members, [](const patch::ListedMember& member) { return member.IsPayload(); });
  return members;
}

void CopyVerified(const std::vector<patch::ListedMember>& members, int from,
                  const std::string& to) {
  patch::Sha256 hash;
  for (const patch::ListedMember& member : members) {
    const std::string contents = ReadListed(from, member.name, member.size);
    hash.Update(contents);
    if (hash.Finish() != member.sha256) {
      throw std::runtime_error(member.name + " is not the signed one");
    }
    const fs::path path = fs::path(to) / member.name;
    fs::create_directories(path.parent_path());
    Write(path, contents, member.mode);
  }
}

}  // namespace kalo::confine
