#include "services/webapid/patience.h"

#include <gtest/gtest.h>

namespace kalo::webapid {
namespace {

using std::chrono::milliseconds;

const Patience::Clock::time_point kNow{std::chrono::hours(1)};

TEST(PatienceTest, IsThereBeforeAnythingIsKnown) {
  EXPECT_TRUE(Patience().IsThere(kNow));
}

TEST(PatienceTest, EndsForTenTimesTheWaitThatWasInVain) {
  Patience patience;
  patience.WaitedInVain(kNow);
  EXPECT_FALSE(patience.IsThere(kNow + 10 * Patience::kWait - std::chrono::nanoseconds(1)));
  EXPECT_TRUE(patience.IsThere(kNow + 10 * Patience::kWait));
}

TEST(PatienceTest, EndsTwiceAsLongEachTimeUpToASecond) {
  Patience patience;
  for (const milliseconds pause : {milliseconds(3), milliseconds(6), milliseconds(12)}) {
    patience.WaitedInVain(kNow);
    EXPECT_FALSE(patience.IsThere(kNow + pause - milliseconds(1)));
    EXPECT_TRUE(patience.IsThere(kNow + pause));
  }
  for (int i = 0; i < 100; ++i) patience.WaitedInVain(kNow);
  EXPECT_FALSE(patience.IsThere(kNow + milliseconds(999)));
  EXPECT_TRUE(patience.IsThere(kNow + milliseconds(1000)));
}

TEST(PatienceTest, IsAsLongAsEverAfterAnAnswerThatCameInTime) {
  Patience patience;
  for (int i = 0; i < 100; ++i) patience.WaitedInVain(kNow);
  patience.CameInTime();
  patience.WaitedInVain(kNow);
  EXPECT_TRUE(patience.IsThere(kNow + milliseconds(3)));
}

}  // namespace
}  // namespace kalo::webapid
