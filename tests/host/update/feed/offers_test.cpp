#include "host/update/feed/offers.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/host/update/feed/example_list.h"

namespace kalo::feed {
namespace {

std::string VersionOf(const Release* release) {
  return release != nullptr ? release->version : "";
}

std::string Regular(const ReleaseList& list, std::int32_t build, bool small_updates = true) {
  return VersionOf(RegularOffer(list, build, small_updates));
}

ReleaseList OldReleases() {
  return ExampleList({Example("VXM 1.3.1-9346", 9346), Example("VXM 1.3.1-9346 Update 1", 9346, 1),
                      Example("VXM 1.3.1-9346 Update 2", 9346, 2), Example("VXM 1.3.2-9400", 9400),
                      Example("VXM 1.3.2-9400 Update 0", 9400)});
}

TEST(RegularOffer, IsTheNewestFullReleaseForAnOlderBuild) {
  EXPECT_EQ(Regular(OldReleases(), 9300), "VXM 1.3.2-9400");
  EXPECT_EQ(Regular(OldReleases(), 9346), "VXM 1.3.2-9400");
}

TEST(RegularOffer, IsNoSmallUpdateOfAnotherBuild) {
  const ReleaseList list = ExampleList({Example("VXM 1.3.1-9346 Update 2", 9346, 2)});
  EXPECT_EQ(Regular(list, 9300), "");
  EXPECT_EQ(Regular(list, 9346), "VXM 1.3.1-9346 Update 2");
}

TEST(RegularOffer, IsTheNewestSmallUpdateOfTheNewestBuild) {
  const ReleaseList list =
      ExampleList({Example("VXM 1.3.1-9346", 9346), Example("VXM 1.3.1-9346 Update 10", 9346, 10),
                   Example("VXM 1.3.1-9346 Update 9", 9346, 9)});
  EXPECT_EQ(Regular(list, 9346), "VXM 1.3.1-9346 Update 10");
  EXPECT_EQ(Regular(list, 9346, false), "VXM 1.3.1-9346");
}

TEST(RegularOffer, ASmallUpdateWithNumberZeroIsNoOfferByItself) {
  EXPECT_EQ(Regular(OldReleases(), 9400), "VXM 1.3.2-9400");
}

TEST(RegularOffer, MayBeOlderThanWhatRuns) {
  EXPECT_EQ(Regular(OldReleases(), 9500), "VXM 1.3.2-9400");
}

TEST(RegularOffer, PassesOverBetaAndStagedReleases) {
  const ReleaseList list = ExampleList({Example("VXM 1.4.0-76000", 76000),
                                        Example("VXM 1.4.0-76010", 76010, 0, "0123456789", "Beta"),
                                        Example("VXM 1.4.0-76020", 76020, 0, "012345678")});
  EXPECT_EQ(Regular(list, 75000), "VXM 1.4.0-76000");
  EXPECT_EQ(Regular(ExampleList({}), 1), "");
}

TEST(RegularOffer, StopsAtTheLowestSteppingStoneAbove) {
  ReleaseList list = ExampleList({Example("VXM 1.2.0-8000", 8000), Example("VXM 1.3.1-9346", 9346),
                                  Example("VXM 1.4.0-76010", 76010)});
  list.stones = {8000, 9346};
  EXPECT_EQ(Regular(list, 7000), "VXM 1.2.0-8000");
  EXPECT_EQ(Regular(list, 8000), "VXM 1.3.1-9346");
  EXPECT_EQ(Regular(list, 9346), "VXM 1.4.0-76010");
  list.stones = {9000};  // no release: nobody can stop there
  EXPECT_EQ(Regular(list, 7000), "VXM 1.4.0-76010");
}

TEST(SmallUpdateNumber, IsTheHighestOfTheBuild) {
  EXPECT_EQ(SmallUpdateNumber(OldReleases(), 9346), 2);
  EXPECT_EQ(SmallUpdateNumber(OldReleases(), 9400), 0);
  EXPECT_EQ(SmallUpdateNumber(OldReleases(), 1), 0);
  EXPECT_EQ(
      SmallUpdateNumber(ExampleList({Example("VXM 1.3.1-9346 Update 3", 9346, 3, "0")}), 9346), 0);
}

class VersionTwo : public testing::Test {
 protected:
  std::string Offer(std::int32_t build, char group, bool beta = true) const {
    return VersionOf(VersionTwoOffer(list_, build, {(group - '0') * 1000, beta}));
  }
  ReleaseList list_ = ExampleList(
      {Example("VXM 1.3.9-75999", 75999), Example("VXM 1.4.0-76000", 76000),
       Example("VXM 1.4.0-76000 Update 4", 76000, 4), Example("VXM 1.4.1-76010", 76010, 0, "01234"),
       Example("VXM 1.4.2-76020", 76020, 0, "0123456789", "Beta")});
};

TEST_F(VersionTwo, OffersWhatHasReachedTheGroup) {
  EXPECT_EQ(Offer(76000, '4', false), "VXM 1.4.1-76010");
  EXPECT_EQ(Offer(76000, '5', false), "");
  EXPECT_EQ(Offer(9346, '5', false), "VXM 1.4.0-76000");
}

TEST_F(VersionTwo, OffersBetaReleasesOnlyWhenAsked) {
  EXPECT_EQ(Offer(76000, '9'), "VXM 1.4.2-76020");
  EXPECT_EQ(Offer(76010, '0', false), "");
}

TEST_F(VersionTwo, OffersNothingThatIsNotAboveAndNothingBelow76000) {
  EXPECT_EQ(Offer(76020, '0'), "");
  EXPECT_EQ(Offer(80000, '0'), "");
  list_ = ExampleList({Example("VXM 1.3.9-75999", 75999)});
  EXPECT_EQ(Offer(9346, '0'), "");
}

std::string Versions(const std::vector<const Release*>& offers) {
  std::string text;
  for (const Release* offer : offers) text += offer->version + ";";
  return text;
}

TEST_F(VersionTwo, ADocumentNamesEachReleaseThatIsTheOfferOfSomeRouter) {
  EXPECT_EQ(Versions(VersionTwoOffers(list_, 76000, '4', true)),
            "VXM 1.4.2-76020;VXM 1.4.1-76010;");
  EXPECT_EQ(Versions(VersionTwoOffers(list_, 76000, '4', false)), "VXM 1.4.1-76010;");
  EXPECT_EQ(Versions(VersionTwoOffers(list_, 76000, '9', false)), "");
  list_.releases.push_back(Example("VXM 1.4.3-76030", 76030, 0, "01234"));
  list_.releases.back().share = 4300;
  EXPECT_EQ(Versions(VersionTwoOffers(list_, 76000, '4', false)),
            "VXM 1.4.3-76030;VXM 1.4.1-76010;");
  EXPECT_EQ(Versions(VersionTwoOffers(list_, 76000, '3', false)), "VXM 1.4.3-76030;");
}

TEST(Rollout, ReachesTheFirstGroupFirstAndWithinItTheLowestNumbers) {
  EXPECT_EQ(RolloutPosition(0), 0);
  EXPECT_EQ(RolloutPosition(10), 1);
  EXPECT_EQ(RolloutPosition(9990), 999);
  EXPECT_EQ(RolloutPosition(1), 1000);
  EXPECT_EQ(RolloutPosition(1237), 7123);
  EXPECT_EQ(RolloutPosition(9999), 9999);
  std::set<std::int32_t> positions;
  for (std::uint32_t id = 0; id < 10000; ++id) positions.insert(RolloutPosition(id));
  EXPECT_EQ(positions.size(), 10000U);
}

TEST(Rollout, ARouterWithoutANumberIsReachedLast) {
  Release release = Example("VXM 1.4.0-76010", 76010);
  EXPECT_TRUE(Reaches(release, {std::nullopt, false}));
  release.share = 9999;
  EXPECT_TRUE(Reaches(release, {9998, false}));
  EXPECT_FALSE(Reaches(release, {9999, false}));
  EXPECT_FALSE(Reaches(release, {std::nullopt, false}));
  EXPECT_FALSE(release.IsForAll());
}

TEST_F(VersionTwo, StopsAtSteppingStones) {
  list_.stones = {76000};
  EXPECT_EQ(Offer(9346, '0'), "VXM 1.4.0-76000");
  EXPECT_EQ(Offer(76000, '0'), "VXM 1.4.2-76020");
}

// The versions at which a router stops before the target, or "-" when no way leads there.
std::string Stops(const ReleaseList& list, const patch::VersionNumbers& running,
                  const patch::VersionNumbers& target) {
  const auto stops = StopsBefore(list, running, target);
  if (!stops) return "-";
  std::string text;
  for (const Release* stop : *stops) text += stop->version + ";";
  return text;
}

class WayToAVersion : public ::testing::Test {
 protected:
  WayToAVersion() { list_.stones = {76010, 76020, 76040}; }

  ReleaseList list_ = ExampleList(
      {Example("VXM 1.4.0-76000", 76000), Example("VXM 1.4.1-76010", 76010),
       Example("VXM 1.4.1-76010 Update 1", 76010, 1),
       Example("VXM 1.4.2-76020", 76020, 0, "0", "Beta"), Example("VXM 1.4.3-76030", 76030),
       Example("VXM 1.4.3-76030 Update 2", 76030, 2), Example("VXM 1.4.4-76040", 76040)});
};

TEST_F(WayToAVersion, LeadsOverEverySteppingStoneBetween) {
  EXPECT_EQ(Stops(list_, {76000, 0}, {76030, 0}), "VXM 1.4.1-76010;VXM 1.4.2-76020;");
  EXPECT_EQ(Stops(list_, {76010, 0}, {76030, 2}), "VXM 1.4.2-76020;");
  EXPECT_EQ(Stops(list_, {76020, 0}, {76040, 0}), "") << "the target is no stop before itself";
  EXPECT_EQ(Stops(list_, {1, 0}, {76010, 1}), "");
}

TEST_F(WayToAVersion, StopsOnlyAtReleases) {
  list_.stones = {76005, 76015};
  EXPECT_EQ(Stops(list_, {76000, 0}, {76030, 0}), "");
}

TEST_F(WayToAVersion, NeedsWhatTheTargetIsMadeOf) {
  EXPECT_EQ(Stops(list_, {76000, 0}, {76031, 0}), "-");
  EXPECT_EQ(Stops(list_, {76000, 0}, {76030, 3}), "-");
  EXPECT_EQ(Stops(list_, {76030, 0}, {76030, 2}), "");
  list_.releases.erase(list_.releases.begin() + 4);  // the full one of 76030
  EXPECT_EQ(Stops(list_, {76000, 0}, {76030, 2}), "-");
  EXPECT_EQ(Stops(list_, {76030, 1}, {76030, 2}), "") << "who runs the build needs it no more";
}

}  // namespace
}  // namespace kalo::feed
