// What the updater of a patch can do, through the calls by which the precheck runs it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/guest_program.h"
#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "host/update/patch_format/patch_writer.h"
#include "host/update/patch_format/signing_key.h"
#include "platform/core/key_value.h"
#include "platform/core/process.h"
#include "platform/paths.h"
#include "tests/support/wait.h"

namespace kalo::confine {
namespace {

namespace fs = std::filesystem;
namespace paths = KALO::paths;

constexpr int kFlags = 187;
constexpr const char* kUpdater = "/tmp/patchtmp/updater";
constexpr const char* kPatch = "/volume1/next.pat";

void WriteText(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadText(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Whether a process with this word in its command line runs. Processes may end while they are read.
bool Runs(const std::string& word) {
  std::error_code gone;
  for (fs::directory_iterator entry("/proc"); entry != fs::directory_iterator();
       entry.increment(gone)) {
    const auto line = ReadFile(entry->path() / "cmdline", 65536);
    if (line && line->find(word) != std::string::npos) return true;
  }
  return false;
}

struct Said {
  std::string text;
  int status = -1;
};

class Confined : public testing::Test {
 protected:
  Confined() {
    fs::create_directories("/usr/kalo/sbin");
    fs::remove(paths::kConfineProgram);
    fs::create_symlink(KALO_CONFINE, paths::kConfineProgram);
    fs::remove_all(paths::kPatchKeys);
    WriteText(fs::path(paths::kPatchKeys) / "vendor.pem", key_.PublicPem());
    fs::remove(paths::kPrecheckReport);
  }
  ~Confined() override { fs::remove_all(paths::kPrecheckScratch); }

  // Makes a patch with this updater and unpacks it as the precheck does.
  void Unpack(const std::string& updater) const {
    const fs::path sources = "/tmp/sources";
    fs::remove_all(sources);
    WriteText(sources / "payload/share/file", "payload");
    WriteText(sources / "updater", updater);
    fs::permissions(sources / "updater", fs::perms(0755));
    WriteText(sources / "texts/enu.txt", "A licence.\n");
    patch::MakePatch({{"kalo_m1", "VXM 1.4.0-76010", 76010, 0},
                      sources / "payload",
                      sources / "updater",
                      sources / "texts"},
                     &key_, kPatch);
    fs::permissions(kPatch, fs::perms(0600));
    fs::remove_all(paths::kPrecheckScratch);
    ASSERT_EQ(KLIBCExec("/bin/mkdir", "-p", paths::kPrecheckScratch, nullptr, nullptr), 0);
    ASSERT_EQ(KLIBCExecl("/bin/tar", kFlags, "-xf", kPatch, "-C", paths::kPrecheckScratch,
                         "updater", "VERSION", "texts", nullptr),
              0);
  }
  void UnpackShell(const std::string& script) const { Unpack("#!/bin/sh\n" + script + "\n"); }

  static int Check() { return KLIBCExec(kUpdater, "-p", "-l", "enu", nullptr); }
  static Said Ask() {
    std::FILE* stream =
        KLIBCPopen(kUpdater, "r", "updater", "--print-eula-content", "-l", "enu", nullptr);
    if (stream == nullptr) return {"no stream", -1};
    Said said;
    std::array<char, 4096> piece{};
    while (fgets(piece.data(), piece.size(), stream) != nullptr) said.text += piece.data();
    said.status = KLIBCPclose(stream);
    return said;
  }
  // What a script says inside.
  [[nodiscard]] std::string Inside(const std::string& script) const {
    UnpackShell(script);
    return Ask().text;
  }
  static bool CannotContinue() {
    char text[1024] = "";
    return KLIBCFileCheckKeyValue(paths::kPrecheckReport, "can_continue", "no", 1) == 1 &&
           KLIBCFileGetKeyValue(paths::kPrecheckReport, "leading_note", text, sizeof text, 0) > 0 &&
           KLIBCFileGetKeyValue(paths::kPrecheckReport, "reason", text, sizeof text, 0) > 0;
  }
  static void ExpectRefused() {
    EXPECT_LT(Check(), 0);
    EXPECT_TRUE(CannotContinue()) << ReadText(paths::kPrecheckReport);
    fs::remove(paths::kPrecheckReport);
  }

  patch::SigningKey key_ = patch::SigningKey::Generate();
};

TEST_F(Confined, GetsItsWordsAndGivesItsStatus) {
  UnpackShell(R"(echo "$0|$1|$2|$3|$#"; cat "${0%/*}/texts/enu.txt"; exit 7)");
  const Said said = Ask();
  EXPECT_EQ(said.text, "/tmp/patchtmp/updater|--print-eula-content|-l|enu|3\nA licence.\n");
  EXPECT_EQ(said.status, 7);
  UnpackShell("exit 1");
  EXPECT_EQ(KLIBCExecl(kUpdater, kFlags, "--should-show-eula", nullptr), 1);
  EXPECT_FALSE(fs::exists(paths::kPrecheckReport)) << "it ended by itself and reported nothing";
}

TEST_F(Confined, SeesTheNameThatItIsCalledBy) {
  std::ifstream program("/bin/cat", std::ios::binary);
  Unpack({std::istreambuf_iterator<char>(program), {}});
  std::FILE* stream = KLIBCPopen(kUpdater, "r", "updater", "/proc/self/cmdline", nullptr);
  ASSERT_NE(stream, nullptr);
  std::array<char, 100> text{};
  EXPECT_EQ(fread(text.data(), 1, text.size(), stream),
            sizeof "updater" + sizeof "/proc/self/cmdline");
  EXPECT_STREQ(text.data(), "updater");
  EXPECT_EQ(KLIBCPclose(stream), 0);
}

TEST_F(Confined, ADeathBySignalIsItsOwnEnd) {
  UnpackShell("kill -TERM $$");
  EXPECT_EQ(Check(), 128 + SIGTERM);
  EXPECT_FALSE(fs::exists(paths::kPrecheckReport));
}

TEST_F(Confined, ItsReportIsHandedOn) {
  UnpackShell(
      "printf 'can_continue=\"yes\"\\nleading_note=\"n\"\\nreason=\"r\"\\n' "
      ">/run/customized_reason; exit 1");
  EXPECT_EQ(Check(), 1);
  EXPECT_EQ(ReadText(paths::kPrecheckReport),
            "can_continue=\"yes\"\nleading_note=\"n\"\nreason=\"r\"\n");
  struct stat status = {};
  ASSERT_EQ(lstat(paths::kPrecheckReport, &status), 0);
  EXPECT_EQ(status.st_uid, geteuid());
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(Confined, AReportThatIsNoFileOrTooLargeIsRefused) {
  for (const char* script :
       {"ln -s /etc/ld.so.cache /run/customized_reason", "mkfifo /run/customized_reason",
        "mkdir /run/customized_reason", "head -c 70000 /dev/zero >/run/customized_reason"}) {
    UnpackShell(script);
    ExpectRefused();
  }
}

TEST_F(Confined, ReadsNoKeyAndNoUser) {
  for (const char* path :
       {"/etc/kalo/tls/server.key", "/etc/kalo/mesh/node.key", "/etc/kalo/users.json",
        "/etc/kalo/private.key", "/volume1/secret", "/var/lib/kalo/sessions/one", "/root/secret",
        "/run/kalo/secret", "/tmp/secret", "/etc/kaloinfo.conf"}) {
    WriteText(path, "secret");
    fs::permissions(path, fs::perms(0666));
  }
  EXPECT_EQ(
      Inside("find / -xdev -type f 2>/dev/null | grep -v ^/proc | sort; find /tmp /run | sort"),
      "/dev/full\n/dev/null\n/dev/random\n/dev/urandom\n/dev/zero\n/etc/ld.so.cache\n"
      "/run\n/tmp\n/tmp/patchtmp\n/tmp/patchtmp/VERSION\n/tmp/patchtmp/texts\n"
      "/tmp/patchtmp/texts/enu.txt\n/tmp/patchtmp/updater\n")
      << "what is on the root itself, in /tmp and in /run";
  EXPECT_EQ(Inside("ls / | tr '\\n' ' '; ls /etc | tr '\\n' ' '").find("volume1"),
            std::string::npos);
}

TEST_F(Confined, SeesItsSettingsAndTheDefaults) {
  WriteText(paths::kUpdaterSettings, "act=x\n");
  fs::permissions(paths::kUpdaterSettings, fs::perms(0600));
  WriteText(paths::kDefaults, "unique=\"kalo_m1\"\n");
  EXPECT_EQ(Inside("cat /etc/kalo/sample-updater /etc.defaults/kaloinfo.conf"),
            "act=x\nunique=\"kalo_m1\"\n");
  fs::remove(paths::kUpdaterSettings);
}

TEST_F(Confined, WritesNothingButItsReport) {
  WriteText("/tmp/kept", "kept");
  EXPECT_EQ(Inside("for f in /x /etc/x /usr/x /usr/kalo/x /tmp/patchtmp/x /tmp/patchtmp/updater "
                   "/dev/x /proc/sys/kernel/core_pattern /proc/sysrq-trigger; do "
                   "(echo >$f) 2>/dev/null && echo wrote $f; done; "
                   "echo 1 >/tmp/own && echo 1 >/run/own && rm -f /tmp/kept; echo end"),
            "end\n");
  EXPECT_TRUE(fs::exists("/tmp/kept"));
  for (const char* path : {"/tmp/own", "/run/own", "/usr/x", "/x"}) {
    EXPECT_FALSE(fs::exists(path)) << path;
  }
}

TEST_F(Confined, HasNoRightsAndNoUserOfTheSystem) {
  EXPECT_EQ(Inside("grep -hE '^(Cap(Inh|Prm|Eff|Bnd|Amb)|NoNewPrivs|Seccomp):' /proc/self/status "
                   "| tr -d '\\t\\n'"),
            "CapInh:0000000000000000CapPrm:0000000000000000CapEff:0000000000000000"
            "CapBnd:0000000000000000CapAmb:0000000000000000NoNewPrivs:1Seccomp:2");
  const bool many_users = ReadText("/proc/self/uid_map").find("4294967295") != std::string::npos;
  if (!many_users) GTEST_SKIP() << "this root has one user only";
  EXPECT_EQ(Inside("grep -hE '^(Uid|Gid|Groups):' /proc/self/status | tr '\\t\\n' '  '"),
            "Uid: 65432 65432 65432 65432 Gid: 65432 65432 65432 65432 Groups:   ");
}

TEST_F(Confined, OpensNoSocketAndHasNoNetwork) {
  Unpack(R"(#!/usr/bin/perl
    use Socket;
    foreach my $family (AF_UNIX, AF_INET, AF_INET6, 16, 17) {
      print "opened $family\n" if socket(my $s, $family, SOCK_STREAM, 0);
      print "$!\n";
    }
    print "pair\n" if socketpair(my $a, my $b, AF_UNIX, SOCK_STREAM, 0);
    open(my $f, "<", "/proc/net/dev"); my @lines = <$f>; print scalar(grep { /:/ } @lines), "\n";
  )");
  const std::string refused = "Operation not permitted\n";
  EXPECT_EQ(Ask().text, refused + refused + refused + refused + refused + "1\n")
      << "the last is the loopback that is down";
}

TEST_F(Confined, CannotLeaveItsNamespaces) {
  EXPECT_EQ(Inside("for c in 'unshare -U true' 'unshare -m true' 'mount -t tmpfs x /tmp' "
                   "'chroot / true' 'nsenter -t 1 -m true' 'setpriv --reuid 1 true'; do "
                   "$c 2>/dev/null && echo $c; done; ls /proc | grep -c '^[0-9]'"),
            "4\n")
      << "its first process, itself, ls and grep";
}

TEST_F(Confined, GetsNoDescriptorOfTheHost) {
  EXPECT_EQ(Inside("cd /proc/self/fd && echo [0-9]*"), "0 1 10 2 3\n")
      << "the shell has its script at 10 and the folder that it lists at 3";
}

TEST_F(Confined, LeavesNoProcess) {
  UnpackShell(
      "setsid sleep 987654 >/dev/null &\n"
      "setsid sh -c 'trap \"\" TERM; sleep 987654 >&- & touch /tmp/up; sleep 987654' &\n"
      "until [ -e /tmp/up ]; do :; done; exit 0");
  EXPECT_EQ(Check(), 0);
  EXPECT_FALSE(Runs("987654"));
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(Confined, ThatHangsIsEndedWithAllItStartedAndNotPassed) {
  UnpackShell("setsid sh -c 'while :; do sleep 123456; done' & while :; do sleep 123456; done");
  const ConfinedUpdater updater({kUpdater, "-p", "-l", "enu"}, kUpdater, -1);
  errno = 0;
  EXPECT_FALSE(updater.Wait(-1, -1, {.whole = std::chrono::milliseconds(1500)}));
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_TRUE(WaitForEnd(updater.Pid()).by_signal);
  EXPECT_TRUE(CannotContinue());
  EXPECT_TRUE(test::WaitFor([] { return !Runs("123456"); }));
}

TEST_F(Confined, MaySayOnlySoMuch) {
  UnpackShell("while :; do echo 'and on and on and on and on and on'; done");
  EXPECT_EQ(Ask().text, "no stream");
  EXPECT_EQ(errno, EFBIG);
  EXPECT_FALSE(fs::exists(paths::kPrecheckReport)) << "the caller goes on without the text";
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(Confined, AFileThatIsNotTheSignedOneIsRefused) {
  for (const char* name :
       {"updater", "VERSION", "texts/enu.txt", "manifest.json", "manifest.sig"}) {
    UnpackShell("exit 0");
    std::ofstream(fs::path(paths::kPrecheckScratch) / name, std::ios::app) << "\n";
    ExpectRefused();
    UnpackShell("exit 0");
    fs::remove(fs::path(paths::kPrecheckScratch) / name);
    ExpectRefused();
  }
}

TEST_F(Confined, AFileThatIsNotListedIsNotShown) {
  UnpackShell("ls -A /tmp/patchtmp | tr '\\n' ' '");
  WriteText(fs::path(paths::kPrecheckScratch) / "more", "x");
  EXPECT_EQ(Ask().text, "VERSION texts updater ");
}

TEST_F(Confined, APatchOfAnotherKeyIsRefused) {
  UnpackShell("exit 0");
  WriteText(fs::path(paths::kPatchKeys) / "vendor.pem", patch::SigningKey::Generate().PublicPem());
  ExpectRefused();
  fs::remove_all(paths::kPatchKeys);
  ExpectRefused();
}

TEST_F(Confined, AFolderThatOthersCanWriteIsRefused) {
  UnpackShell("exit 0");
  fs::permissions(paths::kPrecheckScratch, fs::perms(0755));
  ExpectRefused();
}

TEST_F(Confined, AProgramThatCannotBeRunIsRefused) {
  Unpack("no program");
  ExpectRefused();
}

}  // namespace
}  // namespace kalo::confine
