#include "host/update/feed/list_check.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "host/update/patch_format/signing_key.h"
#include "tests/host/update/feed/example_list.h"

namespace kalo::feed {
namespace {

class ListCheck : public testing::Test {
 protected:
  ListCheck() { keys_.AddPem(key_.PublicPem(), "test key"); }

  // @return what is wrong; empty when nothing is.
  std::string Trouble(const std::string& text, const std::string& signature) const {
    try {
      (void)CheckReleaseList(text, signature, keys_, rules_);
      return "";
    } catch (const std::runtime_error& e) {
      return e.what();
    }
  }
  std::string Trouble() const { return Trouble(text_, key_.Sign(text_)); }

  patch::SigningKey key_ = patch::SigningKey::Generate();
  patch::KeyRing keys_;
  ListRules rules_{"kalo_m1", 7, 1000000000};
  std::string text_ = WriteReleaseList(ExampleList({Example("VXM 1.4.0-76010", 76010)}));
};

TEST_F(ListCheck, TakesASignedListThatIsNoOlderThanTheLast) {
  EXPECT_EQ(Trouble(), "");
  rules_.known_number = 0;
  EXPECT_EQ(Trouble(), "");
}

TEST_F(ListCheck, RefusesABadSignature) {
  const std::string signature = key_.Sign(text_);
  EXPECT_EQ(Trouble(text_ + " ", signature), "its signature is bad");
  EXPECT_EQ(Trouble(text_, ""), "its signature is bad");
  EXPECT_EQ(Trouble(text_, patch::SigningKey::Generate().Sign(text_)), "its signature is bad");
  keys_ = patch::KeyRing();
  EXPECT_EQ(Trouble(), "there is no key to check its signature with");
}

TEST_F(ListCheck, RefusesAListOfAnotherModel) {
  rules_.unique = "kalo_m2";
  EXPECT_EQ(Trouble(), "it is for model kalo_m1");
}

TEST_F(ListCheck, RefusesAnOlderList) {
  rules_.known_number = 8;
  EXPECT_EQ(Trouble(), "it is older (7) than one seen before (8)");
}

TEST_F(ListCheck, RefusesAnExpiredList) {
  rules_.now = 2000000000;
  EXPECT_EQ(Trouble(), "");
  rules_.now = 2000000001;
  EXPECT_EQ(Trouble(), "it has expired");
}

TEST_F(ListCheck, RefusesASignedTextThatIsNoList) {
  EXPECT_NE(Trouble("{}", key_.Sign("{}")), "");
  EXPECT_NE(Trouble("", key_.Sign("")), "");
}

}  // namespace
}  // namespace kalo::feed
