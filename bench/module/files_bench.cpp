// What the files of a poll and of a step cost, beside the bare system calls that they need.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>

#include "platform/core/key_value.h"

namespace {

constexpr const char* kText = "step=\"downloading\"\npercent=\"40\"\n";

std::string FileIn(const benchmark::State& state) {
  return std::string(state.range(0) == 0 ? "/dev/shm" : "/var/tmp") + "/kalo-bench";
}

void Write(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  (void)!write(fd, kText, std::char_traits<char>::length(kText));
  close(fd);
}

// As a poll does: two keys, each from a file of its own opening.
void ReadProgress(benchmark::State& state) {
  const std::string path = FileIn(state);
  Write(path);
  std::array<char, 8192> value{};
  for (auto _ : state) {
    for (const char* key : {"step", "percent"}) {
      benchmark::DoNotOptimize(
          KLIBCFileGetKeyValue(path.c_str(), key, value.data(), value.size(), 0));
    }
  }
  unlink(path.c_str());
}

void BareRead(benchmark::State& state) {
  const std::string path = FileIn(state);
  Write(path);
  std::array<char, 8192> value{};
  for (auto _ : state) {
    for (int i = 0; i < 2; ++i) {
      const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
      benchmark::DoNotOptimize(read(fd, value.data(), value.size()));
      close(fd);
    }
  }
  unlink(path.c_str());
}

void SetPercent(benchmark::State& state) {
  const std::string path = FileIn(state);
  Write(path);
  int percent = 0;
  for (auto _ : state) {
    const std::string number = std::to_string(percent++ % 100);
    benchmark::DoNotOptimize(KLIBCFileSetKeyValue(path.c_str(), "percent", number.c_str(), 0));
  }
  unlink(path.c_str());
}

// Whole, and durable where it has to be.
void BareRewrite(benchmark::State& state) {
  const std::string path = FileIn(state);
  const std::string next = path + ".next";
  for (auto _ : state) {
    const int fd = open(next.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    (void)!write(fd, kText, std::char_traits<char>::length(kText));
    if (state.range(0) != 0) fsync(fd);
    close(fd);
    (void)!rename(next.c_str(), path.c_str());
    if (state.range(0) == 0) continue;
    const int folder = open("/var/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    fsync(folder);
    close(folder);
  }
  unlink(path.c_str());
}

// 0: /dev/shm, in memory; 1: /var/tmp, on the disk.
BENCHMARK(ReadProgress)->Arg(0);
BENCHMARK(BareRead)->Arg(0);
BENCHMARK(SetPercent)->Arg(0)->Arg(1);
BENCHMARK(BareRewrite)->Arg(0)->Arg(1);

}  // namespace
