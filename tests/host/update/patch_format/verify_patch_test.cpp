#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "host/update/patch_format/patch_file.h"
#include "tests/host/update/patch_format/raw_patch.h"

namespace kalo::patch {
namespace {

using test::GoodPatch;
using test::RawMember;
using test::RawPatch;

class VerifyPatchTest : public ::testing::Test {
 protected:
  VerifyResult Verify(const std::string& bytes) {
    return VerifyPatch(folder_.Write("x.patch", bytes), maker_.ring);
  }

  // How a good patch is judged after a change that its maker made, manifest and signature included.
  VerifyOutcome AfterChange(const std::function<void(RawPatch&)>& change) {
    RawPatch patch = GoodPatch();
    change(patch);
    return Verify(patch.Bytes(maker_.key)).outcome;
  }

  // How it is judged when only the file was changed and the signed manifest stayed.
  VerifyOutcome BehindTheMaker(const std::function<void(RawPatch&)>& change) {
    RawPatch patch = GoodPatch();
    patch.manifest = patch.RightManifest();
    change(patch);
    return Verify(patch.Bytes(maker_.key)).outcome;
  }

  test::TemporaryFolder folder_;
  test::Maker maker_;
};

TEST_F(VerifyPatchTest, AGoodPatchIsValidAndDescribed) {
  const VerifyResult result = Verify(GoodPatch().Bytes(maker_.key));
  ASSERT_TRUE(result.IsValid()) << result.reason;
  EXPECT_EQ(result.description.unique, "kalo_cap1");
  EXPECT_EQ(result.description.version, "VXM 1.4.0-76010 Update 3");
  EXPECT_EQ(result.description.build, 76010);
  EXPECT_EQ(result.description.nano, 3);
  EXPECT_EQ(result.payload_files, 2U);
  EXPECT_EQ(result.payload_bytes, 607U);
  EXPECT_TRUE(result.is_signed);
  EXPECT_EQ(result.reason, "");
}

TEST_F(VerifyPatchTest, BytesBehindTheEndAreFound) {
  const std::string good = GoodPatch().Bytes(maker_.key);
  EXPECT_EQ(Verify(good + "x").outcome, VerifyOutcome::kNotAPatch);
  EXPECT_EQ(Verify(good + test::TarBytes({{.name = "payload/more", .data = "x"}})).outcome,
            VerifyOutcome::kNotAPatch);
  for (const std::size_t more : {1UL, 512UL, 10240UL, 1024UL * 1024}) {
    EXPECT_EQ(Verify(good + std::string(more, '\0')).outcome, VerifyOutcome::kNotAPatch) << more;
  }
}

TEST_F(VerifyPatchTest, WithoutAKeyNothingIsValid) {
  const std::string path = folder_.Write("x.patch", GoodPatch().Bytes(maker_.key));
  EXPECT_EQ(VerifyPatch(path, KeyRing()).outcome, VerifyOutcome::kNoKey);
}

TEST_F(VerifyPatchTest, AForeignKeyIsRefused) {
  EXPECT_EQ(Verify(GoodPatch().Bytes(SigningKey::Generate())).outcome,
            VerifyOutcome::kBadSignature);
}

TEST_F(VerifyPatchTest, OneOfSeveralKeysIsEnough) {
  const SigningKey second = SigningKey::Generate();
  maker_.ring.AddFile(folder_.Write("second.pem", second.PublicPem()));
  EXPECT_TRUE(Verify(GoodPatch().Bytes(second)).IsValid());
  EXPECT_TRUE(Verify(GoodPatch().Bytes(maker_.key)).IsValid());
}

TEST_F(VerifyPatchTest, AnUnsignedPatchIsRefused) {
  const RawPatch patch = GoodPatch();
  std::vector<RawMember> members = patch.members;
  members.insert(members.begin(), {.name = "manifest.json", .data = patch.RightManifest()});
  EXPECT_EQ(Verify(test::TarBytes(members)).outcome, VerifyOutcome::kBadSignature);
}

TEST_F(VerifyPatchTest, MembersThatAreNotAsListedAreFound) {
  const auto expect_bad = [&](const char* what, const std::function<void(RawPatch&)>& change) {
    EXPECT_EQ(BehindTheMaker(change), VerifyOutcome::kBadMember) << what;
  };
  expect_bad("other bytes", [](RawPatch& p) { p.Member("payload/readme").data = "read ME"; });
  expect_bad("bigger", [](RawPatch& p) { p.Member("payload/readme").data += "!"; });
  expect_bad("smaller", [](RawPatch& p) { p.Member("payload/bin/tool").data.pop_back(); });
  expect_bad("claims to be longer than the file",
             [](RawPatch& p) { p.Member("payload/readme").claimed_size = 1ULL << 32U; });
  expect_bad("empty", [](RawPatch& p) { p.Member("updater").data = ""; });
  expect_bad("foreign mode", [](RawPatch& p) { p.Member("payload/readme").mode = 0755; });
  expect_bad("set-user-id", [](RawPatch& p) { p.Member("payload/bin/tool").mode = 04755; });
  expect_bad("folder's mode", [](RawPatch& p) { p.Member("payload/").mode = 0777; });
  expect_bad("missing at the end", [](RawPatch& p) { p.members.pop_back(); });
  expect_bad("missing in the middle", [](RawPatch& p) { p.members.erase(p.members.begin() + 3); });
  expect_bad("not listed at the end",
             [](RawPatch& p) { p.members.push_back({.name = "payload/z", .data = "z"}); });
  expect_bad("not listed in the middle", [](RawPatch& p) {
    p.members.insert(p.members.begin() + 3, {.name = "texts/aa", .data = "z"});
  });
  expect_bad("twice", [](RawPatch& p) { p.members.push_back(p.members.back()); });
  expect_bad("swapped", [](RawPatch& p) { std::swap(p.members[0], p.members[1]); });
  expect_bad("a folder that nothing needs", [](RawPatch& p) {
    p.members.push_back({.name = "payload/tmp/", .mode = 0755, .type = '5'});
  });
  expect_bad("a folder twice", [](RawPatch& p) { p.members.push_back(p.Member("payload/")); });
  expect_bad("a folder missing", [](RawPatch& p) { p.members.erase(p.members.begin() + 2); });
  expect_bad("folders swapped", [](RawPatch& p) { std::swap(p.members[4], p.members[5]); });
  expect_bad("a folder too early", [](RawPatch& p) {
    const RawMember folder = p.Member("payload/");
    p.members.erase(p.members.begin() + 4);
    p.members.insert(p.members.begin(), folder);
  });
  expect_bad("dot names",
             [](RawPatch& p) { p.Member("payload/readme").name = "./payload/readme"; });
}

TEST_F(VerifyPatchTest, WhatIsNoPlainFileOrNotRootsIsFound) {
  const auto expect_bad = [&](const char* what, const std::function<void(RawPatch&)>& change) {
    EXPECT_EQ(BehindTheMaker(change), VerifyOutcome::kNotAPatch) << what;
  };
  const auto turn_into = [](char type, const std::string& link) {
    return [type, link](RawPatch& p) {
      RawMember& member = p.Member("payload/readme");
      member.type = type;
      member.link = link;
      member.data = "";
    };
  };
  expect_bad("symbolic link", turn_into('2', "/etc/shadow"));
  expect_bad("hard link", turn_into('1', "payload/bin/tool"));
  expect_bad("character device", turn_into('3', ""));
  expect_bad("block device", turn_into('4', ""));
  expect_bad("FIFO", turn_into('6', ""));
  expect_bad("foreign user", [](RawPatch& p) { p.Member("payload/readme").uid = 1000; });
  expect_bad("foreign group", [](RawPatch& p) { p.Member("payload/readme").gid = 1000; });
  expect_bad("foreign user's name", [](RawPatch& p) { p.Member("updater").owner = "mallory"; });
  expect_bad("root's name", [](RawPatch& p) { p.Member("updater").owner = "root"; });
  expect_bad("foreign folder", [](RawPatch& p) { p.Member("payload/").uid = 1000; });
  expect_bad("GNU form", [](RawPatch& p) { p.Member("updater").magic = "ustar  "; });
  expect_bad("old form", [](RawPatch& p) { p.Member("updater").magic = ""; });
  expect_bad("GNU long name", [](RawPatch& p) {
    p.members.insert(
        p.members.begin() + 3,
        {.name = "././@LongLink", .data = std::string("texts/en.txt\0", 13), .type = 'L'});
  });
  expect_bad("pax header", [](RawPatch& p) {
    p.members.insert(p.members.begin() + 3, {.name = "pax", .data = "11 size=99\n", .type = 'x'});
  });
  expect_bad("global pax header", [](RawPatch& p) {
    p.members.insert(p.members.begin(), {.name = "pax", .data = "11 size=99\n", .type = 'g'});
  });
}

TEST_F(VerifyPatchTest, WhatAnotherUnpackerCouldReadInAnotherWayIsFound) {
  for (const char type : {'\0', '7', 'D', 'M', 'S', 'V', 'Z'}) {
    for (const char* name : {"updater", "payload/"}) {
      EXPECT_EQ(BehindTheMaker([&](RawPatch& p) { p.Member(name).type = type; }),
                VerifyOutcome::kNotAPatch)
          << name << " " << type;
    }
  }
  EXPECT_EQ(BehindTheMaker([](RawPatch& p) { p.Member("payload/").claimed_size = 512; }),
            VerifyOutcome::kNotAPatch);
}

TEST_F(VerifyPatchTest, AVersionThatDescribesNothingIsFound) {
  for (const char* text :
       {"", "unique=kalo_cap1\n", "unique=a\nversion=VXM 1.4.0-76010\nbuild=76011\nnano=0\n",
        "unique=a\nversion=VXM 1.4.0-76010\nbuild=76010\nnano=1\n",
        "unique=a\nversion=1.4.0-76010\nbuild=76010\nnano=0\n",
        "unique=../a\nversion=VXM 1.4.0-76010\nbuild=76010\nnano=0\n",
        "unique=a\nversion=VXM 1.4.0-76010\nbuild=x\nnano=0\n",
        "unique=a\nversion=VXM 2.0-3\nbuild=VXM 2\nnano=3\n"}) {
    EXPECT_EQ(AfterChange([&](RawPatch& p) { p.Member("VERSION").data = text; }),
              VerifyOutcome::kBadDescription)
        << text;
  }
}

TEST_F(VerifyPatchTest, WhatIsNoTarIsNotAPatch) {
  EXPECT_EQ(Verify("").outcome, VerifyOutcome::kNotAPatch);
  EXPECT_EQ(Verify(std::string(4096, '\0')).outcome, VerifyOutcome::kNotAPatch);
  EXPECT_EQ(Verify(std::string(100000, 'x')).outcome, VerifyOutcome::kNotAPatch);
  EXPECT_EQ(Verify(test::TarBytes(GoodPatch().members)).outcome, VerifyOutcome::kNotAPatch)
      << "without a manifest";
}

TEST_F(VerifyPatchTest, AManifestAboveTheLimitIsNotRead) {
  RawPatch patch = GoodPatch();
  patch.manifest = patch.RightManifest() + std::string(1024UL * 1024, ' ');
  EXPECT_EQ(Verify(patch.Bytes(maker_.key)).outcome, VerifyOutcome::kNotAPatch);
}

TEST_F(VerifyPatchTest, WhatOthersCanWriteIsRefused) {
  const std::string path = folder_.Write("x.patch", GoodPatch().Bytes(maker_.key), 0620);
  EXPECT_EQ(VerifyPatch(path, maker_.ring).outcome, VerifyOutcome::kOthersCanWrite);
  EXPECT_TRUE(VerifyPatch(path, maker_.ring, FileTrust::kAnyOwner).IsValid());
  ASSERT_EQ(chmod(path.c_str(), 0602), 0);
  EXPECT_EQ(VerifyPatch(path, maker_.ring).outcome, VerifyOutcome::kOthersCanWrite);
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  EXPECT_TRUE(VerifyPatch(path, maker_.ring).IsValid());
}

TEST_F(VerifyPatchTest, AForeignOwnersFileIsRefused) {
  const std::string path = folder_.Write("x.patch", GoodPatch().Bytes(maker_.key));
  // In a root with one mapped user there is no foreign owner.
  if (chown(path.c_str(), 1000, 0) != 0) GTEST_SKIP() << "cannot give files away here";
  EXPECT_EQ(VerifyPatch(path, maker_.ring).outcome, VerifyOutcome::kOthersCanWrite);
}

TEST_F(VerifyPatchTest, LinksFoldersFifosAndNothingCannotBeRead) {
  const std::string path = folder_.Write("x.patch", GoodPatch().Bytes(maker_.key));
  ASSERT_EQ(symlink(path.c_str(), folder_.Path("link").c_str()), 0);
  ASSERT_EQ(mkfifo(folder_.Path("fifo").c_str(), 0600), 0);
  for (const char* name : {"link", "fifo", "missing", "."}) {
    EXPECT_EQ(VerifyPatch(folder_.Path(name), maker_.ring).outcome, VerifyOutcome::kCannotRead)
        << name;
  }
}

}  // namespace
}  // namespace kalo::patch
