#include <gtest/gtest.h>
#include <json/value.h>

#include <filesystem>
#include <set>

#include "host/core/strict_json.h"
#include "tests/programs/kalo_patch_fixture.h"

namespace kalo {
namespace {

namespace fs = std::filesystem;

TEST_F(KaloPatchTest, FromKeysToAVerifiedPatch) {
  ASSERT_EQ(Keygen("maker").status, 0);
  ASSERT_EQ(Make().status, 0);
  EXPECT_EQ(Run({"verify", Path("x.patch"), "--key", Path("maker.pem")}).status, 1) << "unsigned";
  ASSERT_EQ(Run({"sign", Path("x.patch"), "--key", Path("maker.key")}).status, 0);
  const Outcome verified = Run({"verify", Path("x.patch"), "--key", Path("maker.pem")});
  EXPECT_EQ(verified.status, 0) << verified.err;
  EXPECT_NE(verified.out.find("VXM 1.4.0-76010 for kalo_x1"), std::string::npos);
}

TEST_F(KaloPatchTest, MakeSignsAtOnceWhenGivenAKey) {
  ASSERT_EQ(Keygen("maker").status, 0);
  ASSERT_EQ(Make({"--key", Path("maker.key")}).status, 0);
  fs::create_directory(Path("keys"));
  fs::copy_file(Path("maker.pem"), Path("keys/maker.pem"));
  EXPECT_EQ(Run({"verify", Path("x.patch"), "--keys", Path("keys")}).status, 0);
}

TEST_F(KaloPatchTest, KeygenKeepsThePrivateKeyPrivateAndNeverWritesOverOne) {
  ASSERT_EQ(Keygen("maker").status, 0);
  EXPECT_EQ(ModeOf(Path("maker.key")), 0600U);
  EXPECT_EQ(ModeOf(Path("maker.pem")), 0644U);
  const std::string key = test::Contents(Path("maker.key"));
  EXPECT_EQ(Keygen("maker").status, 1);
  EXPECT_EQ(test::Contents(Path("maker.key")), key);
}

TEST_F(KaloPatchTest, VerifyRefusesAForeignKeyAndADamagedFile) {
  ASSERT_EQ(Keygen("maker").status, 0);
  ASSERT_EQ(Keygen("other").status, 0);
  ASSERT_EQ(Make({"--key", Path("maker.key")}).status, 0);
  EXPECT_EQ(Run({"verify", Path("x.patch"), "--key", Path("other.pem")}).status, 1);
  std::string bytes = test::Contents(Path("x.patch"));
  bytes[bytes.find("dddd")] = 'e';
  (void)folder_.Write("x.patch", bytes);
  const Outcome outcome = Run({"verify", Path("x.patch"), "--key", Path("maker.pem")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find(Path("x.patch")), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.err.find("payload/data"), std::string::npos) << outcome.err;
}

TEST_F(KaloPatchTest, ShowListsForPeopleAndForPrograms) {
  ASSERT_EQ(Make().status, 0);
  const Outcome text = Run({"show", Path("x.patch")});
  EXPECT_EQ(text.status, 0);
  EXPECT_NE(text.out.find("payload/bin/tool"), std::string::npos);
  const Outcome json = Run({"show", "--json", Path("x.patch")});
  ASSERT_EQ(json.status, 0);
  const Json::Value root = ParseStrictJson(json.out).value();
  EXPECT_EQ(root["unique"], "kalo_x1");
  EXPECT_EQ(root["build"], 76010);
  EXPECT_EQ(root["nano"], 0);
  EXPECT_EQ(root["signed"], false);
  EXPECT_EQ(root["payload_files"], 2);
  EXPECT_EQ(root["payload_bytes"], 5009);
  EXPECT_EQ(root["members"].size(), 5U);
  EXPECT_EQ(root["members"][3]["name"], "payload/bin/tool");
  EXPECT_EQ(root["members"][3]["mode"], "0755");
}

TEST_F(KaloPatchTest, WrongUsageIsToldApartFromFailure) {
  EXPECT_EQ(Run({}).status, 2);
  EXPECT_EQ(Run({"nonsense"}).status, 2);
  EXPECT_EQ(Run({"verify", Path("x.patch")}).status, 2) << "no key named";
  EXPECT_EQ(Run({"show"}).status, 2);
  EXPECT_EQ(Make({"--build", "76011"}).status, 2);
  EXPECT_EQ(Run({"make", Path("in"), "--unique", "a", "--version", "1.4", "--updater",
                 Path("updater"), "-o", Path("x.patch")})
                .status,
            2);
  EXPECT_EQ(Run({"show", Path("missing")}).status, 1);
  EXPECT_EQ(Run({"sign", Path("missing"), "--key", Path("missing")}).status, 1);
  EXPECT_FALSE(fs::exists(Path("x.patch")));
}

TEST_F(KaloPatchTest, AFailureLeavesTheOldFileAndNothingElse) {
  (void)folder_.Write("x.patch", "old");
  fs::create_symlink("/etc/passwd", Path("in/link"));
  const Outcome outcome = Make();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find("in/link"), std::string::npos) << outcome.err;
  EXPECT_EQ(test::Contents(Path("x.patch")), "old");
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(Path(""))) {
    names.insert(entry.path().filename());
  }
  EXPECT_EQ(names,
            (std::set<std::string>{"in", "stderr", "stdout", "texts", "updater", "x.patch"}));
}

TEST_F(KaloPatchTest, EverySubcommandHasHelp) {
  for (const char* command : {"keygen", "make", "sign", "verify", "show"}) {
    const Outcome outcome = Run({command, "--help"});
    EXPECT_EQ(outcome.status, 0) << command;
    EXPECT_NE(outcome.out.find("Usage: kalo-patch"), std::string::npos) << command;
  }
  EXPECT_EQ(Run({"--help"}).status, 0);
}

}  // namespace
}  // namespace kalo
