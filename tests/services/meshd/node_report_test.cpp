#include "services/meshd/node_report.h"

#include <gtest/gtest.h>

#include <optional>

#include "services/meshd/json_members.h"

namespace kalo::meshd {
namespace {

Json::Value Info() {
  return ParseDocument(R"({"node_id":2,"name":"attic","unique":"kalo_sat1",
    "version":"VXM 1.4.0-76000","build":76000,"nano":0,"boot_id":"ab","staged_version":"",
    "staged_build":0,"staged_nano":0,"install":{"step":"updating_programs","percent":40,
    "version":"VXM 1.4.0-76010","errno":0,"err_desc":"","err_msg":""}})");
}

std::optional<NodeReport> Parse(const Json::Value& data) {
  try {
    return ParseNodeReport(data);
  } catch (const BadJson&) {
    return std::nullopt;
  }
}

TEST(NodeReport, ReadsWhatANodeSays) {
  const auto report = Parse(Info());
  ASSERT_TRUE(report);
  EXPECT_EQ(report->node_id, 2U);
  EXPECT_EQ(report->name, "attic");
  EXPECT_EQ(report->unique, "kalo_sat1");
  EXPECT_EQ(report->build, 76000);
  EXPECT_EQ(report->install.step, "updating_programs");
  EXPECT_EQ(report->install.percent, 40);
}

TEST(NodeReport, AnyMissingKeyMakesItUnreadable) {
  for (const char* key : {"node_id", "name", "unique", "version", "build", "nano", "boot_id",
                          "staged_version", "install"}) {
    Json::Value info = Info();
    info.removeMember(key);
    EXPECT_FALSE(Parse(info)) << key;
    info[key] = Json::arrayValue;
    EXPECT_FALSE(Parse(info)) << key;
  }
  EXPECT_FALSE(Parse(Json::Value()));
  EXPECT_FALSE(Parse(Json::Value("text")));
}

TEST(NodeReport, ANodeWithoutVersionOrBootIdIsUnreadable) {
  for (const char* key : {"version", "boot_id"}) {
    Json::Value info = Info();
    info[key] = "";
    EXPECT_FALSE(Parse(info)) << key;
  }
}

TEST(NodeReport, NoInstallationIsTheStepNone) {
  Json::Value info = Info();
  info["install"]["step"] = "";
  EXPECT_EQ(Parse(info)->install.step, "none");
}

TEST(NodeReport, APercentageOutsideItsRangeIsBounded) {
  Json::Value info = Info();
  info["install"]["percent"] = 400;
  EXPECT_EQ(Parse(info)->install.percent, 100);
  info["install"]["percent"] = -4;
  EXPECT_EQ(Parse(info)->install.percent, 0);
}

}  // namespace
}  // namespace kalo::meshd
