#include "host/update/feed/version_two.h"

#include <gtest/gtest.h>

#include "host/core/strict_json.h"
#include "tests/host/update/feed/example_list.h"

namespace kalo::feed {
namespace {

TEST(VersionTwoDocument, HoldsTheOfferAsItsOnlyItem) {
  const Release release = Example("VXM 1.4.0-76010", 76010, 0, "0123456789", "Beta");
  const auto document = ParseStrictJson(VersionTwoDocument({&release}, "kalo_m1"));
  ASSERT_TRUE(document);
  const Json::Value& items = (*document)["channel"]["item"];
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items[0]["title"], "VXM 1.4.0-76010");
  EXPECT_EQ(items[0]["BuildNum"], 76010);
  EXPECT_EQ(items[0]["phase"], "Beta");
  EXPECT_EQ(items[0]["model"], "kalo_m1");
  EXPECT_EQ(items[0]["size"], 1000);
}

TEST(VersionTwoDocument, HasAnEmptyListWithoutAnOffer) {
  const auto document = ParseStrictJson(VersionTwoDocument({}, ""));
  ASSERT_TRUE(document);
  EXPECT_TRUE((*document)["channel"]["item"].isArray());
  EXPECT_TRUE((*document)["channel"]["item"].empty());
}

}  // namespace
}  // namespace kalo::feed
