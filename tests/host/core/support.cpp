#include "tests/host/core/support.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>

#include "host/core/spawn.h"

namespace kalo::test {
namespace fs = std::filesystem;
namespace {

void Check(bool good, const char* what) {
  if (!good) throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

Folder::Folder() {
  std::string pattern = "/tmp/core-test.XXXXXX";
  Check(mkdtemp(pattern.data()) != nullptr, "mkdtemp");
  path_ = pattern;
}

Folder::~Folder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string Folder::Path(const std::string& name) const {
  return name.empty() ? path_ : path_ / name;
}

void Folder::Write(const std::string& name, const std::string& contents) const {
  std::ofstream file(path_ / name, std::ios::binary);
  file << contents;
}

std::string Folder::Read(const std::string& name) const {
  std::ifstream file(path_ / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> Folder::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(path_)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

SmallTmpfs::SmallTmpfs(const std::string& path) : path_(path) {
  Check(mount("tmpfs", path.c_str(), "tmpfs", 0, "size=64k") == 0, "mount");
}

SmallTmpfs::~SmallTmpfs() {
  umount2(path_.c_str(), MNT_DETACH);
}

void SmallTmpfs::Fill() const {
  const UniqueFd fd(open((path_ + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const std::string page(4096, 'x');
  while (write(fd.Get(), page.data(), page.size()) > 0) {
  }
  Check(errno == ENOSPC, "write");
}

void SmallTmpfs::MakeReadOnly() const {
  Check(mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0, "remount");
}

Child::Child(const std::function<int()>& body) : pid_(fork()) {
  Check(pid_ >= 0, "fork");
  if (pid_ > 0) return;
  constexpr unsigned kLongestLife = 60;
  alarm(kLongestLife);
  _exit(body());
}

Child::~Child() {
  if (pid_ > 0) Kill();
}

void Child::Kill() {
  kill(pid_, SIGKILL);
  Wait();
}

int Child::Wait() {
  return WaitForExit(std::exchange(pid_, -1));
}

Pipe::Pipe() {
  int ends[2] = {-1, -1};
  Check(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
  read_end.Reset(ends[0]);
  write_end.Reset(ends[1]);
}

void Pipe::WaitForByte() const {
  char byte = 0;
  Check(read(read_end.Get(), &byte, 1) >= 0, "read");
}

void Pipe::SendByte() const {
  Check(write(write_end.Get(), "x", 1) == 1, "write");
}

std::string Pipe::ReadAll() {
  write_end.Reset();
  std::string text;
  char part[4096];
  ssize_t got = 0;
  while ((got = read(read_end.Get(), part, sizeof part)) > 0) {
    text.append(part, static_cast<std::size_t>(got));
  }
  return text;
}

}  // namespace kalo::test
