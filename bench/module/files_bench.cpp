// What the module and the core library add to the system calls of a poll and of a step. Beside each
// stand just the calls that it cannot do without.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "host/core/unique_fd.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "webapi/api_table.h"

namespace {

using kalo::UniqueFd;

constexpr std::string_view kText =
    "step=\"downloading\"\npercent=\"40\"\nversion=\"VXM 1.4.0-76010\"\n";
constexpr const char* kBareLock = "/run/kalo-bench.lock";
constexpr int kSafely = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

std::array<char, 8192> buffer;

// What fails costs nothing, and must not pass for quick.
void Check(benchmark::State& state, bool done) {
  if (!done) state.SkipWithError("a call failed");
}

// 0: in memory; 1: on the disk.
std::string FolderOf(const benchmark::State& state) {
  return state.range(0) == 0 ? "/dev/shm/" : KALO_BENCH_DISK "/";
}

bool Write(int file) {
  return write(file, kText.data(), kText.size()) == static_cast<ssize_t>(kText.size());
}

void Prepare(benchmark::State& state, const std::string& path) {
  const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  Check(state, Write(file.Get()));
}

bool ReadSafely(int folder, const char* path) {
  const UniqueFd file(openat(folder, path, O_RDONLY | kSafely));
  struct stat status {};
  return fstat(file.Get(), &status) == 0 && read(file.Get(), buffer.data(), buffer.size()) > 0;
}

// A whole poll, as the worker has the module answer it.
void PollOfADownload(benchmark::State& state) {
  Prepare(state, KALO::paths::kDownloadProgress);
  for (auto _ : state) {
    KALO::APIRequest request{Json::Value(Json::objectValue)};
    KALO::APIResponse response;
    WebapiUpgradeDownloadProgress(&request, &response);
    Check(state, response.Data()["percent"] == 40);
  }
  unlink(KALO::paths::kDownloadProgress);
}

void BarePoll(benchmark::State& state) {
  Prepare(state, KALO::paths::kDownloadProgress);
  for (auto _ : state) {
    struct stat status {};
    for (int look = 0; look < 2; ++look) stat(KALO::paths::kDownloadProgress, &status);
    for (int key = 0; key < 3; ++key) {
      Check(state, ReadSafely(AT_FDCWD, KALO::paths::kDownloadProgress));
    }
  }
  unlink(KALO::paths::kDownloadProgress);
}

void TwoKeys(benchmark::State& state) {
  const std::string path = FolderOf(state) + "kalo-bench";
  Prepare(state, path);
  for (auto _ : state) {
    for (const char* key : {"step", "percent"}) {
      Check(state, KLIBCFileGetKeyValue(path.c_str(), key, buffer.data(), buffer.size(), 0) > 0);
    }
  }
  unlink(path.c_str());
}

void BareTwoKeys(benchmark::State& state) {
  const std::string path = FolderOf(state) + "kalo-bench";
  Prepare(state, path);
  for (auto _ : state) {
    for (int key = 0; key < 2; ++key) Check(state, ReadSafely(AT_FDCWD, path.c_str()));
  }
  unlink(path.c_str());
}

void Step(benchmark::State& state) {
  const std::string path = FolderOf(state) + "kalo-bench";
  Prepare(state, path);
  int percent = 0;
  for (auto _ : state) {
    const std::string number = std::to_string(percent++ % 100);
    Check(state, KLIBCFileSetKeyValue(path.c_str(), "percent", number.c_str(), 0) > 0);
  }
  unlink(path.c_str());
}

// One writer at a time, the other keys kept, the file whole at every moment, and durable where that
// means something.
void BareStep(benchmark::State& state) {
  const std::string place = FolderOf(state);
  Prepare(state, place + "kalo-bench");
  for (auto _ : state) {
    const UniqueFd folder(open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const UniqueFd lock(open(kBareLock, O_RDWR | O_CREAT | kSafely, 0600));
    Check(state,
          flock(lock.Get(), LOCK_EX | LOCK_NB) == 0 && ReadSafely(folder.Get(), "kalo-bench"));
    const UniqueFd next(
        openat(folder.Get(), ".bench-next", O_WRONLY | O_CREAT | O_EXCL | kSafely, 0600));
    Check(state, fchmod(next.Get(), 0600) == 0 && Write(next.Get()));
    if (state.range(0) != 0) Check(state, fsync(next.Get()) == 0);
    Check(state, renameat(folder.Get(), ".bench-next", folder.Get(), "kalo-bench") == 0);
    if (state.range(0) != 0) Check(state, fsync(folder.Get()) == 0);
    flock(lock.Get(), LOCK_UN);
  }
  unlink((place + "kalo-bench").c_str());
  unlink(kBareLock);
}

BENCHMARK(PollOfADownload);
BENCHMARK(BarePoll);
BENCHMARK(TwoKeys)->Arg(0);
BENCHMARK(BareTwoKeys)->Arg(0);
BENCHMARK(Step)->Arg(0)->Arg(1);
BENCHMARK(BareStep)->Arg(0)->Arg(1);

}  // namespace
