// The commands that only look, against a server that answers as a test says.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/failure.h"
#include "tests/programs/local_server.h"

namespace kalo::cli {
namespace {

using test::LocalServer;
using test::Result;
using test::RunKaloMesh;
using test::Success;
using testing::HasSubstr;

constexpr const char* kHistory =
    R"({"updates":[{"begun":1767225600,"ended":1767225660,"cause":"automatic","result":"failed",)"
    R"("nodes":[{"id":0,"name":"Hall","from":"VXM 1.4.0-76000","wanted":"VXM 1.4.0-76010",)"
    R"("result":"done","error":"","errno":0},{"id":3,"name":"At\u001btic","from":"VXM 1.4.0-76000",)"
    R"("wanted":"VXM 1.4.0-76010","result":"failed","error":"the disk is full","errno":5224}]}]})";

std::string State(const std::string& download) {
  return Success(R"({"update_running":false,"status":{"status":"downloading","percent":)" +
                 download + R"(},"download":{"status":"downloading","percent":)" + download +
                 R"(},"nodes":[{"id":0,"name":"Hall","online":true,"version":"VXM 1.4.0-76000",)"
                 R"("step":"none","percent":0}]})");
}

TEST(KaloMeshHistory, TellsEachNodeOfEachUpdate) {
  const LocalServer server(Success(kHistory));
  const Result result = RunKaloMesh({"history"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("automatic"));
  EXPECT_THAT(result.out, HasSubstr("60 s"));
  EXPECT_THAT(result.out, HasSubstr("0 Hall"));
  EXPECT_THAT(result.out, HasSubstr("the disk is full"));
  EXPECT_EQ(result.out.find('\x1b'), std::string::npos) << "a terminal must not obey a name";
}

TEST(KaloMeshHistory, SaysWhenThereIsNone) {
  const LocalServer server(Success(R"({"updates":[]})"));
  EXPECT_EQ(RunKaloMesh({"history"}).out, "No update was installed yet.\n");
}

TEST(KaloMeshWatch, ShowsEachChangeOnce) {
  std::atomic<int> asked = 0;
  const LocalServer server([&](const std::string&) { return State(++asked < 3 ? "5" : "9"); });
  const Result result = RunKaloMesh({"watch", "--count", "3"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("Download: downloading, 5 %"));
  EXPECT_THAT(result.out, HasSubstr("Download: downloading, 9 %"));
  EXPECT_EQ(result.out.find("5 %"), result.out.find("Mesh:     downloading, 5 %") + 23);
  EXPECT_EQ(asked, 3);
}

TEST(KaloMeshWatch, PrintsALineForEachChangeForScripts) {
  const LocalServer server(State("5"));
  const Result result = RunKaloMesh({"watch", "--count", "2", "--json"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1);
  EXPECT_TRUE(ParseStrictJson(result.out).has_value());
}

TEST(KaloMeshWatch, GoesOnWhileTheRouterIsAway) {
  const Result result = RunKaloMesh({"watch", "--count", "2"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_EQ(result.out, "The main router does not answer.\n");
}

TEST(KaloMeshDoctor, SaysWhyAndWhatIsOdd) {
  const LocalServer server([](const std::string& row) {
    if (row == "KALO.Core.Mesh/1/events") return State("5");
    return Success(R"({"files":[{"path":"/tmp/mesh_download","there":true,)"
                   R"("text":"step=\"downloading\"\npercent=\"5\"\n"}],"locks":[],)"
                   R"("equal_update_runs":false})");
  });
  const Result result = RunKaloMesh({"doctor"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("status says \"downloading\", because /tmp/mesh_download says "
                                    "step=\"downloading\" percent=\"5\""));
  EXPECT_THAT(result.out, HasSubstr("- /tmp/mesh_download"));
  EXPECT_THAT(result.out, HasSubstr("the download died"));
}

TEST(KaloMeshDoctor, AMeshServiceThatIsAwayIsSaid) {
  const LocalServer server(R"({"success":false,"error":{"code":117,"message":"It failed."}})");
  const Result result = RunKaloMesh({"doctor"});
  EXPECT_EQ(result.status, kFailed);
  EXPECT_THAT(result.err, HasSubstr("see whether meshd runs"));
}

TEST(KaloMeshDump, HoldsEveryAnswerAndBearsRefusals) {
  const LocalServer server([](const std::string& row) {
    if (row == "KALO.Mesh.Upgrade/2/status") {
      return std::string(R"({"success":false,"error":{"code":117,"message":"It failed."}})");
    }
    return Success(R"({"of":")" + row + "\"}");
  });
  EXPECT_EQ(RunKaloMesh({"dump", "--out", "/tmp/report.json"}).status, kOk);
  const auto report = ParseStrictJson(ReadFile("/tmp/report.json", 1 << 20).value_or(""));
  ASSERT_TRUE(report.has_value());
  const Json::Value& answers = (*report)["answers"];
  EXPECT_EQ(answers.size(), 10U);
  EXPECT_EQ(answers["KALO.Core.Mesh 1 diagnosis"]["of"].asString(), "KALO.Core.Mesh/1/diagnosis");
  EXPECT_EQ(answers["KALO.Mesh.Upgrade 2 status"]["error"].asInt(), 117);
  EXPECT_EQ(std::filesystem::status("/tmp/report.json").permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  EXPECT_EQ(RunKaloMesh({"dump", "--out", "/none/report.json"}).status, kFailed);
}

TEST(KaloMeshLook, AnswersOfAnotherShapeAreNoCrash) {
  for (const char* data :
       {"null", "[]", "5", R"({"updates":{}})", R"({"updates":[1,{"nodes":3},{"nodes":[1]}]})",
        R"({"status":[],"download":5,"nodes":[{"id":"x"}]})", R"({"files":5,"locks":{}})",
        R"({"files":[1],"locks":[1],"nodes":[[]],"status":null})"}) {
    const LocalServer server(Success(data));
    for (const char* command : {"history", "doctor", "dump"}) {
      EXPECT_LT(RunKaloMesh({command}).status, 128) << command << " " << data;
    }
    EXPECT_LT(RunKaloMesh({"watch", "--count", "1"}).status, 128) << data;
  }
}

TEST(KaloMeshLook, TheWordForADocumentMayStandBeforeTheCommand) {
  const LocalServer server(Success(R"({"status":"none"})"));
  EXPECT_EQ(RunKaloMesh({"--json", "status"}).out, "{\"status\":\"none\"}\n");
  EXPECT_EQ(RunKaloMesh({"status", "--json"}).out, "{\"status\":\"none\"}\n");
}

}  // namespace
}  // namespace kalo::cli
