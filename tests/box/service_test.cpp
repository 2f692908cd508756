#include "box/service.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace kalo::box {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class ServiceTest : public testing::Test {
 protected:
  // Lets the program end and tells the service when.
  void End(milliseconds at) {
    ASSERT_GT(service_.Pid(), 0);
    ASSERT_EQ(waitpid(service_.Pid(), nullptr, 0), service_.Pid());
    service_.OnExit(begin_ + at);
  }
  bool Tick(milliseconds at) { return service_.Tick(begin_ + at); }

  bool may_start_ = true;
  Service::Clock::time_point begin_ = Service::Clock::now();
  Service service_{{"true", {"/bin/true"}, -1, [this] { return may_start_; }}};
};

TEST_F(ServiceTest, StartsAtOnceAndOnlyOnce) {
  EXPECT_TRUE(Tick(milliseconds(0)));
  EXPECT_FALSE(Tick(milliseconds(1)));
  End(milliseconds(2));
}

TEST_F(ServiceTest, WaitsForWhatItNeeds) {
  may_start_ = false;
  EXPECT_FALSE(Tick(milliseconds(0)));
  may_start_ = true;
  EXPECT_TRUE(Tick(milliseconds(1)));
  End(milliseconds(2));
}

TEST_F(ServiceTest, StartsAgainAtOnceAfterALongLife) {
  EXPECT_TRUE(Tick(milliseconds(0)));
  End(seconds(10));
  EXPECT_TRUE(Tick(seconds(10)));
  End(seconds(20));
}

TEST_F(ServiceTest, PausesLongerAfterEachShortLifeUpToFiveSeconds) {
  milliseconds now(0);
  milliseconds pause(0);
  for (const milliseconds expected :
       {milliseconds(100), milliseconds(200), milliseconds(400), milliseconds(800),
        milliseconds(1600), milliseconds(3200), milliseconds(5000), milliseconds(5000)}) {
    now += pause;
    ASSERT_TRUE(Tick(now));
    End(now);
    EXPECT_FALSE(Tick(now + expected - milliseconds(1)));
    pause = expected;
  }
}

TEST_F(ServiceTest, OneThatIsNotWantedStaysOff) {
  EXPECT_TRUE(Tick(milliseconds(0)));
  service_.SetWanted(false);
  End(milliseconds(1));
  EXPECT_FALSE(Tick(seconds(60)));
  service_.SetWanted(true);
  EXPECT_TRUE(Tick(seconds(61)));
  End(seconds(61));
}

TEST_F(ServiceTest, AMissingProgramIsTriedAgain) {
  Service missing({"missing", {"/usr/kalo/sbin/missing"}});
  EXPECT_FALSE(missing.Tick(begin_));
  EXPECT_EQ(missing.Pid(), 0);
  EXPECT_FALSE(missing.Tick(begin_ + seconds(1)));
}

}  // namespace
}  // namespace kalo::box
