#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "tests/host/update/temporary_folder.h"

namespace kalo {

/// How a program ended and what it wrote.
struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

/// Runs kalo-patch on files in a folder of the test's own.
class KaloPatchTest : public testing::Test {
 protected:
  KaloPatchTest() {
    (void)folder_.Write("in/bin/tool", "a program", 0755);
    (void)folder_.Write("in/data", std::string(5000, 'd'));
    (void)folder_.Write("texts/en.txt", "words");
    (void)folder_.Write("updater", "update", 0755);
  }

  [[nodiscard]] std::string Path(const std::string& name) const { return folder_.Path(name); }

  [[nodiscard]] Outcome Run(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), KALO_PATCH_PROGRAM);
    const std::string out = Path("stdout");
    const std::string err = Path("stderr");
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
    const UniqueFd out_fd(open(out.c_str(), kFlags, 0600));
    const UniqueFd err_fd(open(err.c_str(), kFlags, 0600));
    SpawnOptions options;
    options.stdout_fd = out_fd.Get();
    options.stderr_fd = err_fd.Get();
    Outcome outcome;
    outcome.status = WaitForExit(Spawn(arguments, options));
    outcome.out = test::Contents(out);
    outcome.err = test::Contents(err);
    return outcome;
  }

  [[nodiscard]] Outcome Keygen(const std::string& name) const {
    return Run({"keygen", "--private", Path(name + ".key"), "--public", Path(name + ".pem")});
  }

  [[nodiscard]] Outcome Make(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {
        "make",      Path("in"),      "--unique", "kalo_x1",     "--version", "VXM 1.4.0-76010",
        "--updater", Path("updater"), "--texts",  Path("texts"), "-o",        Path("x.patch")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Run(arguments);
  }

  static unsigned ModeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
  }

  test::TemporaryFolder folder_;
};

}  // namespace kalo
