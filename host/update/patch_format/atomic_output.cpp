#include "host/update/patch_format/atomic_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "host/update/patch_format/patch_error.h"

namespace kalo::patch {

AtomicOutput::AtomicOutput(std::string path, mode_t mode) : path_(std::move(path)) {
  std::string name = path_ + ".XXXXXX";
  fd_ = UniqueFd(::mkostemp(name.data(), O_CLOEXEC));
  if (!fd_) Fail();
  temporary_ = name;
  if (::fchmod(fd_.Get(), mode) != 0) Fail();
}

AtomicOutput::~AtomicOutput() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void AtomicOutput::Commit() {
  if (::fsync(fd_.Get()) != 0) Fail();
  if (::rename(temporary_.c_str(), path_.c_str()) != 0) Fail();
  temporary_.clear();
  const std::string folder = std::filesystem::path(path_).parent_path();
  const UniqueFd parent(
      ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!parent || ::fsync(parent.Get()) != 0) Fail();
}

void AtomicOutput::Fail() const {
  const int error = errno;
  throw PatchError(VerifyOutcome::kCannotWrite,
                   "cannot write " + path_ + ": " + std::strerror(error), error);
}

}  // namespace kalo::patch
