#include "services/webapid/request_runner.h"

#include <gtest/gtest.h>

#include <array>

#include "host/core/strict_json.h"
#include "host/webapi/error_codes.h"

namespace kalo::webapid {
namespace {

void Succeed(KALO::APIRequest* /*request*/, KALO::APIResponse* response) {
  response->SetSuccess(Json::Value());
}

constexpr std::array<KALO::APIRow, 2> kRows{
    {{"KALO.A", 0, "get", Succeed}, {"KALO.A", 1, "get", Succeed}}};

// @return the answer's error number; 0 for a success.
int Answer(const std::string& body) {
  webapi::ApiRegistry registry;
  registry.Add(kRows, "the test");
  const ForkWatch forks(-1);
  const auto envelope = ParseStrictJson(RunRequest(registry, forks, body).envelope);
  return envelope ? (*envelope)["error"]["code"].asInt() : -1;
}

TEST(RequestRunner, ARequestRunsItsRow) {
  EXPECT_EQ(Answer("KALO.A 0 get\n{}"), 0);
  EXPECT_EQ(Answer("KALO.A 1 get\n{\"a\":1}"), 0);
  EXPECT_EQ(Answer("KALO.A 2 get\n{}"), webapi::kUnknownApi);
}

TEST(RequestRunner, WhatIsNoRequestIsMalformed) {
  for (const char* body : {"", "KALO.A 1 get", "KALO.A 1\n{}", "KALO.A x get\n{}",
                           "KALO.A 1 get\n[]", "KALO.A 1 get\n{}x"}) {
    EXPECT_EQ(Answer(body), webapi::kMalformedRequest) << body;
  }
}

TEST(RequestRunner, AVersionThatIsNoneIsNotTakenForZero) {
  EXPECT_EQ(Answer("KALO.A  get\n{}"), webapi::kMalformedRequest);
  EXPECT_EQ(Answer("KALO.A 99999999999 get\n{}"), webapi::kMalformedRequest);
}

}  // namespace
}  // namespace kalo::webapid
