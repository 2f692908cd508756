#include "host/update/patch_format/manifest.h"

#include <gtest/gtest.h>

#include "host/update/patch_format/patch_error.h"
#include "tests/host/update/patch_format/raw_patch.h"

namespace kalo::patch {
namespace {

const std::string kDigest(64, 'a');

ListedMember Member(const std::string& name, std::uint64_t size = 1) {
  return {name, size, kDigest, kFileMode};
}

Manifest Good() {
  return {{Member("VERSION"), Member("updater"), Member("texts/en.txt"), Member("payload/a/b")}};
}

VerifyOutcome OutcomeOf(const std::string& text) {
  try {
    (void)ParseManifest(text);
    return VerifyOutcome::kValid;
  } catch (const PatchError& e) {
    return e.Outcome();
  }
}

std::string Entry(const std::string& name) {
  return R"({"name":")" + name + R"(","size":1,"sha256":")" + kDigest + R"(","mode":"0644"})";
}

std::string Text(const std::vector<std::string>& names) {
  std::string list = Entry("VERSION") + "," + Entry("updater");
  for (const std::string& name : names) list += "," + Entry(name);
  return R"({"format":1,"members":[)" + list + "]}";
}

TEST(ManifestTest, WhatIsWrittenIsReadBack) {
  const Manifest manifest = ParseManifest(WriteManifest(Good()));
  ASSERT_EQ(manifest.members.size(), 4U);
  EXPECT_EQ(manifest.members[3].name, "payload/a/b");
  EXPECT_EQ(manifest.members[3].sha256, kDigest);
  EXPECT_EQ(manifest.members[3].mode, kFileMode);
  EXPECT_EQ(manifest.TotalBytes(), 4U);
  EXPECT_EQ(manifest.Folders(),
            (std::set<std::string, std::less<>>{"texts", "payload", "payload/a"}));
}

TEST(ManifestTest, NamesThatLeadElsewhereAreRefused) {
  for (const char* name :
       {"payload/../x", "payload/..", "payload/./x", "payload//x", "payload/x/", "payload/",
        "/payload/x", "../payload/x", "./payload/x", "payload/a\\\\b", "payload/a\\nb",
        "payload/a\\u0000b", "payload/\\u00e9", "payload", "", "other", "textsx/a"}) {
    EXPECT_EQ(OutcomeOf(Text({name, "payload/last"})), VerifyOutcome::kBadManifest) << name;
  }
  EXPECT_EQ(OutcomeOf(Text({"payload/" + std::string(300, 'x')})), VerifyOutcome::kBadManifest);
  EXPECT_EQ(OutcomeOf(Text({"payload/..x", "payload/ blank"})), VerifyOutcome::kValid);
}

TEST(ManifestTest, OrderAndPresenceAreChecked) {
  EXPECT_EQ(OutcomeOf(Text({"payload/x"})), VerifyOutcome::kValid);
  EXPECT_EQ(OutcomeOf(Text({})), VerifyOutcome::kBadManifest) << "no payload";
  EXPECT_EQ(OutcomeOf(Text({"texts/x"})), VerifyOutcome::kBadManifest) << "no payload";
  EXPECT_EQ(OutcomeOf(Text({"payload/x", "texts/x"})), VerifyOutcome::kBadManifest);
  EXPECT_EQ(OutcomeOf(Text({"VERSION", "payload/x"})), VerifyOutcome::kBadManifest);
  EXPECT_EQ(OutcomeOf(Text({"payload/x", "payload/x"})), VerifyOutcome::kBadManifest) << "twice";
  EXPECT_EQ(OutcomeOf(Text({"payload/x", "payload/x/y"})), VerifyOutcome::kBadManifest)
      << "a file as folder";
  EXPECT_EQ(OutcomeOf(R"({"format":1,"members":[]})"), VerifyOutcome::kBadManifest);
}

TEST(ManifestTest, AnythingButTheExactFormIsRefused) {
  const std::string good = Text({"payload/x"});
  const auto replaced = [&](const std::string& what, const std::string& by) {
    std::string text = good;
    return text.replace(text.rfind(what), what.size(), by);
  };
  for (const std::string& text : {std::string(),
                                  std::string("x"),
                                  std::string("[]"),
                                  std::string("{}"),
                                  good + "x",
                                  good + good,
                                  replaced("\"format\":1", "\"format\":2"),
                                  replaced("\"format\":1", "\"format\":\"1\""),
                                  replaced("\"format\":1", "\"format\":1,\"more\":1"),
                                  replaced("\"size\":1", "\"size\":-1"),
                                  replaced("\"size\":1", "\"size\":1.5"),
                                  replaced("\"size\":1", "\"size\":\"1\""),
                                  replaced("\"size\":1", "\"size\":1e30"),
                                  replaced("\"size\":1", "\"size\":8589934592"),
                                  replaced("\"size\":1", "\"size\":1,\"size\":2"),
                                  replaced("0644", "0600"),
                                  replaced("\"0644\"", "420"),
                                  replaced("aaaa", "aaaA"),
                                  replaced("aaaa", "aaa"),
                                  replaced("\"mode\"", "\"Mode\""),
                                  std::string(100000, '[')}) {
    EXPECT_EQ(OutcomeOf(text), VerifyOutcome::kBadManifest) << text.substr(0, 200);
  }
}

TEST(ManifestTest, MoreMembersThanTheLimitAreRefused) {
  Manifest manifest = Good();
  manifest.members.resize(3);
  for (std::size_t i = 0; i < kMostMembers; ++i) {
    manifest.members.push_back(Member("payload/" + std::to_string(i)));
  }
  EXPECT_THROW((void)WriteManifest(manifest), PatchError);
}

}  // namespace
}  // namespace kalo::patch
