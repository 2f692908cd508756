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

TEST(LoginThrottle, NobodyDelaysAnotherAddress) {
  LoginThrottle throttle;
  for (const char* peer : {"a", "b", "c", "d"}) {
    for (int i = 0; i < 10; ++i) throttle.Failed("u", peer, kStart);
  }
  EXPECT_EQ(throttle.Wait("u", "a", kStart), seconds(60));
  EXPECT_EQ(throttle.Wait("other", "a", kStart), seconds(60));
  EXPECT_EQ(throttle.Wait("u", "owner", kStart), seconds(0));
}

// Else whoever has an account would guess another one's password without any delay.
TEST(LoginThrottle, SuccessDoesNotClearOtherUsers) {
  LoginThrottle throttle;
  throttle.Failed("u", "p", kStart);
  throttle.Succeeded("guest", "p", kStart);
  EXPECT_EQ(throttle.Wait("u", "p", kStart), seconds(1));
  EXPECT_EQ(throttle.Wait("guest", "p", kStart), seconds(0));
}

TEST(LoginThrottle, ASuccessMakesTheAddressTrustedForThisUser) {
  LoginThrottle throttle;
  throttle.Succeeded("u", "p", kStart);
  throttle.Failed("u", "p", kStart);
  EXPECT_TRUE(throttle.IsTrusted("u", "p"));
  EXPECT_FALSE(throttle.IsTrusted("u", "other"));
  EXPECT_FALSE(throttle.IsTrusted("other", "p"));
}

TEST(LoginThrottle, SuccessClears) {
  LoginThrottle throttle;
  throttle.Failed("u", "p", kStart);
  throttle.Succeeded("u", "p", kStart);
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
  EXPECT_EQ(throttle.Wait("u4999", "p4999", now), seconds(1));
}

}  // namespace
}  // namespace kalo::webapid
