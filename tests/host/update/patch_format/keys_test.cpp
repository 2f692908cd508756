#include <gtest/gtest.h>

#include "host/update/patch_format/key_ring.h"
#include "host/update/patch_format/signing_key.h"
#include "tests/host/update/patch_format/raw_patch.h"

namespace kalo::patch {
namespace {

const std::string kText = "some bytes";

TEST(KeysTest, AKeyThatWasWrittenOutSignsAndVerifies) {
  const test::TemporaryFolder folder;
  const SigningKey made = SigningKey::Generate();
  const SigningKey key = SigningKey::Load(folder.Write("private.pem", made.PrivatePem()));
  EXPECT_EQ(key.PublicPem(), made.PublicPem());
  KeyRing ring;
  ring.AddFile(folder.Write("public.pem", made.PublicPem()));
  const std::string signature = key.Sign(kText);
  EXPECT_EQ(signature.size(), 64U);
  EXPECT_TRUE(ring.Verifies(kText, signature));
  EXPECT_FALSE(ring.Verifies(kText + "x", signature));
  EXPECT_FALSE(ring.Verifies(kText, std::string(64, '\0')));
  EXPECT_FALSE(ring.Verifies(kText, ""));
}

TEST(KeysTest, AFoldersUsableKeysAreLoadedAndTheRestLeftOut) {
  const test::TemporaryFolder folder;
  const SigningKey key = SigningKey::Generate();
  (void)folder.Write("keys/a.pem", "no key");
  (void)folder.Write("keys/b.pem", key.PublicPem());
  (void)folder.Write("keys/c.txt", SigningKey::Generate().PublicPem());
  const KeyRing ring = KeyRing::Load(folder.Path("keys"));
  EXPECT_TRUE(ring.Verifies(kText, key.Sign(kText)));
}

TEST(KeysTest, AMissingOrEmptyFolderGivesNoKeys) {
  const test::TemporaryFolder folder;
  EXPECT_TRUE(KeyRing::Load(folder.Path("missing")).Empty());
  EXPECT_TRUE(KeyRing::Load(folder.Path("")).Empty());
}

TEST(KeysTest, APrivateKeyIsNoPublicKeyAndTheOtherWayRound) {
  const test::TemporaryFolder folder;
  const SigningKey key = SigningKey::Generate();
  KeyRing ring;
  EXPECT_THROW(ring.AddFile(folder.Write("x.pem", key.PrivatePem())), std::runtime_error);
  EXPECT_THROW((void)SigningKey::Load(folder.Write("y.pem", key.PublicPem())), std::runtime_error);
  EXPECT_THROW((void)SigningKey::Load(folder.Path("missing")), std::runtime_error);
  EXPECT_TRUE(ring.Empty());
}

}  // namespace
}  // namespace kalo::patch
