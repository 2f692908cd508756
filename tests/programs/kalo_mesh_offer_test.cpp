#include <gtest/gtest.h>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/update_offer.h"

namespace kalo::cli {
namespace {

UpdateOffer Read(const std::string& text) {
  return ReadOffer(*ParseStrictJson(text));
}

TEST(UpdateOffer, SaysThatThereIsNothing) {
  const UpdateOffer offer = Read(R"({"available":false,"over_version":false})");
  EXPECT_FALSE(offer.available);
  EXPECT_EQ(offer.Sentence(), "Every node is up to date.");
}

TEST(UpdateOffer, SaysThatANodeIsNewer) {
  const UpdateOffer offer = Read(R"({"available":false,"over_version":true})");
  EXPECT_FALSE(offer.available);
  EXPECT_NE(offer.Sentence().find("newer version than the maker offers"), std::string::npos);
}

TEST(UpdateOffer, TellsSmallFromFull) {
  const UpdateOffer small = Read(
      R"({"available":true,"over_version":false,"type":"smallupdate","version":"VXM 1.3.1-9346 Update 2"})");
  EXPECT_TRUE(small.available);
  EXPECT_FALSE(small.promotion);
  EXPECT_EQ(small.Sentence(), "VXM 1.3.1-9346 Update 2 is available: a small update.");
  EXPECT_EQ(Read(R"({"available":true,"type":"hbx","version":"V"})").Sentence(),
            "V is available: a full update.");
}

TEST(UpdateOffer, APromotionCountsAsAvailable) {
  const UpdateOffer offer = Read(
      R"({"available":false,"promotion":true,"promotion_version":"V","beta_version":true,"type":"hbx"})");
  EXPECT_TRUE(offer.available);
  EXPECT_TRUE(offer.promotion);
  EXPECT_TRUE(offer.beta);
  EXPECT_EQ(offer.version, "V");
  EXPECT_EQ(offer.Sentence(), "V is available: a new major release, still in its beta phase.");
}

TEST(UpdateOffer, BearsAnyAnswerAndSteersNoTerminal) {
  for (const char* text : {"[]", "{}", R"({"available":"yes"})", R"({"promotion":1})"}) {
    EXPECT_FALSE(Read(text).available) << text;
  }
  EXPECT_EQ(Read(R"({"available":true,"version":"\u001b[2J"})").Sentence(),
            "?[2J is available: a full update.");
}

}  // namespace
}  // namespace kalo::cli
