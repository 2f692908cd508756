#include "services/webapid/login_throttle.h"

#include <gtest/gtest.h>

#include <string>

namespace kalo::webapid {
namespace {

using std::chrono::seconds;

const LoginThrottle::Time kStart{};

TEST(LoginThrottle, TheWaitDoublesUpToAMinute) {
  LoginThrottle throttle;
  LoginThrottle::Time now = kStart;
  EXPECT_EQ(throttle.Wait("u", "p", now), seconds(0));
  for (const int expected : {1, 2, 4, 8, 16, 32, 60, 60}) {
    throttle.Failed("u", "p", now);
    EXPECT_EQ(throttle.Wait("u", "p", now), seconds(expected));
    now += seconds(expected);
    EXPECT_EQ(throttle.Wait("u", "p", now), seconds(0));
  }
}

TEST(LoginThrottle, CountsForTheUserAndForTheAddress) {
  LoginThrottle throttle;
  throttle.Failed("u", "p", kStart);
  EXPECT_EQ(throttle.Wait("u", "other", kStart), seconds(1));
  EXPECT_EQ(throttle.Wait("other", "p", kStart), seconds(1));
  EXPECT_EQ(throttle.Wait("other", "other", kStart), seconds(0));
}

TEST(LoginThrottle, SuccessClears) {
  LoginThrottle throttle;
  throttle.Failed("u", "p", kStart);
  throttle.Succeeded("u", "p");
  EXPECT_EQ(throttle.Wait("u", "p", kStart), seconds(0));
  throttle.Failed("u", "p", kStart);
  EXPECT_EQ(throttle.Wait("u", "p", kStart), seconds(1));
}

TEST(LoginThrottle, IsForgottenAfterAnHour) {
  LoginThrottle throttle;
  for (int i = 0; i < 5; ++i) throttle.Failed("u", "p", kStart);
  const auto later = kStart + std::chrono::hours(2);
  throttle.Failed("u", "p", later);
  EXPECT_EQ(throttle.Wait("u", "p", later), seconds(1));
}

TEST(LoginThrottle, ManyNamesPushOutTheOldestOnly) {
  LoginThrottle throttle;
  for (int i = 0; i < 5000; ++i) {
    throttle.Failed("u" + std::to_string(i), "p" + std::to_string(i),
                    kStart + std::chrono::milliseconds(i));
  }
  const auto now = kStart + std::chrono::milliseconds(5000);
  EXPECT_EQ(throttle.Wait("u4999", "x", now), seconds(1));
}

}  // namespace
}  // namespace kalo::webapid
