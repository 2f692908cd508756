#include "services/webapid/digest.h"

#include <gtest/gtest.h>

namespace kalo::webapid {
namespace {

TEST(Digest, IsSha256) {
  EXPECT_EQ(Sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Digest, ComparesWholeTexts) {
  EXPECT_TRUE(EqualInConstantTime("same", "same"));
  EXPECT_FALSE(EqualInConstantTime("same", "samt"));
  EXPECT_FALSE(EqualInConstantTime("same", "sam"));
}

}  // namespace
}  // namespace kalo::webapid
