#include "host/update/patch_format/patch_walk.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <optional>

#include "host/core/unique_fd.h"
#include "host/update/patch_format/description.h"
#include "host/update/patch_format/sha256.h"
#include "host/update/patch_format/tar_reader.h"

namespace kalo::patch {
namespace {

constexpr std::size_t kPiece = 256UL * 1024;

[[noreturn]] void FailMember(const std::string& reason) {
  throw PatchError(VerifyOutcome::kBadMember, reason);
}

UniqueFd OpenPatch(const std::string& path, FileTrust trust) {
  // Non-blocking, so that a FIFO at the path cannot hold us up.
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!fd || ::fstat(fd.Get(), &status) != 0) {
    throw PatchError(VerifyOutcome::kCannotRead, std::strerror(errno), errno);
  }
  if (!S_ISREG(status.st_mode)) {
    throw PatchError(VerifyOutcome::kCannotRead, "not a regular file");
  }
  if (trust == FileTrust::kRootOnly &&
      (status.st_uid != 0 || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)) {
    throw PatchError(VerifyOutcome::kOthersCanWrite, "not root's, or group or others may write it");
  }
  return fd;
}

class Walk {
 public:
  Walk(int fd, const KeyRing* keys, PatchSink& sink) : tar_(fd), keys_(keys), sink_(sink) {}

  VerifyResult Run() {
    TakeManifest();
    std::optional<TarMember> member = tar_.Next();
    result_.is_signed = TakeSignature(member);
    if (result_.is_signed) member = tar_.Next();
    manifest_ = ParseManifest(manifest_text_);
    ExpectMember();
    sink_.OnManifest(manifest_, manifest_text_);
    for (; member; member = tar_.Next()) {
      if (member->is_folder) {
        TakeFolder(*member);
      } else {
        TakeFile(*member);
      }
    }
    if (next_ != manifest_.members.size()) {
      FailMember(manifest_.members[next_].name + ": listed but missing");
    }
    result_.outcome = VerifyOutcome::kValid;
    return result_;
  }

 private:
  void TakeManifest() {
    const std::optional<TarMember> member = tar_.Next();
    if (!member || member->is_folder || member->name != kManifestName ||
        member->mode != kFileMode) {
      throw PatchError(VerifyOutcome::kNotAPatch, "does not begin with manifest.json");
    }
    if (member->size > kLargestManifest) {
      throw PatchError(VerifyOutcome::kNotAPatch, "manifest.json is too large");
    }
    manifest_text_ = ReadSmall(*member);
  }

  // @return whether the member is the signature: an unsigned patch goes on with its first file.
  bool TakeSignature(const std::optional<TarMember>& member) {
    const bool present = member && !member->is_folder && member->name == kSignatureName &&
                         member->mode == kFileMode && member->size == kSignatureBytes;
    const std::string signature = present ? ReadSmall(*member) : std::string();
    if (keys_ == nullptr) return present;
    if (!present) throw PatchError(VerifyOutcome::kBadSignature, "the patch is not signed");
    if (keys_->Empty()) throw PatchError(VerifyOutcome::kNoKey, "there is no key to check it with");
    if (!keys_->Verifies(manifest_text_, signature)) {
      throw PatchError(VerifyOutcome::kBadSignature, "no known key made this signature");
    }
    return true;
  }

  std::string ReadSmall(const TarMember& member) {
    std::string text(member.size, '\0');
    std::size_t done = 0;
    while (done < text.size()) {
      const std::size_t count = tar_.Read(std::span(text).subspan(done));
      if (count == 0) FailMember(member.name + ": cut off");
      done += count;
    }
    return text;
  }

  // Folders are not listed: each comes right before the first listed file that it holds.
  void ExpectMember() {
    folders_.clear();
    if (next_ == manifest_.members.size()) return;
    const auto folders = order_.NewFor(manifest_.members[next_].name);
    folders_.assign(folders.begin(), folders.end());
  }

  void TakeFolder(const TarMember& member) {
    if (folders_.empty() || member.name != folders_.front()) {
      FailMember(member.name + ": this folder does not belong here");
    }
    if (member.mode != kFolderMode) FailMember(member.name + ": foreign mode");
    folders_.pop_front();
  }

  void TakeFile(const TarMember& member) {
    if (next_ == manifest_.members.size()) FailMember(member.name + ": not listed");
    if (!folders_.empty()) FailMember(folders_.front() + ": the folder is missing");
    const ListedMember& listed = manifest_.members[next_++];
    ExpectMember();
    if (member.name != listed.name) {
      FailMember(member.name + ": " + listed.name + " is listed in this place");
    }
    if (member.mode != listed.mode) FailMember(member.name + ": not the listed mode");
    if (member.size != listed.size) FailMember(member.name + ": not the listed size");
    sink_.OnMember(listed);
    CopyData(listed);
    sink_.OnMemberEnd(listed);
    if (listed.name == kVersionName) result_.description = ParseDescription(version_text_);
    if (!listed.IsPayload()) return;
    result_.payload_bytes += listed.size;
    ++result_.payload_files;
  }

  void CopyData(const ListedMember& listed) {
    buffer_.resize(
        std::max<std::size_t>(buffer_.size(), std::min<std::uint64_t>(kPiece, listed.size)));
    std::uint64_t done = 0;
    for (;;) {
      const std::span<const char> bytes(buffer_.data(), tar_.Read(buffer_));
      if (bytes.empty()) break;
      done += bytes.size();
      if (done > listed.size) FailMember(listed.name + ": longer than listed");
      hash_.Update(bytes);
      if (listed.name == kVersionName) version_text_.append(bytes.begin(), bytes.end());
      sink_.OnData(listed, bytes);
    }
    if (done != listed.size || hash_.Finish() != listed.sha256) {
      FailMember(listed.name + ": not the listed contents");
    }
  }

  TarReader tar_;
  const KeyRing* keys_;
  PatchSink& sink_;
  std::string manifest_text_;
  std::string version_text_;
  Manifest manifest_;
  FolderOrder order_;
  std::deque<std::string> folders_;  ///< that must come before the next listed file
  std::size_t next_ = 0;
  Sha256 hash_;
  std::vector<char> buffer_;
  VerifyResult result_;
};

}  // namespace

VerifyResult WalkPatch(const std::string& path, const KeyRing* keys, FileTrust trust,
                       PatchSink& sink) {
  const UniqueFd fd = OpenPatch(path, trust);
  return Walk(fd.Get(), keys, sink).Run();
}

}  // namespace kalo::patch
