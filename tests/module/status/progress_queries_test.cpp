#include <stdexcept>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

constexpr const char* kPath = "/tmp/mesh_download";

class DownloadProgress : public fake::ModuleTest,
                         public ::testing::WithParamInterface<KALO::APIHandler> {};

TEST_P(DownloadProgress, WithoutAFileIsNoneWithoutVersion) {
  Call(GetParam());
  EXPECT_THAT(Lines(), fake::ElementsAre("exist /tmp/mesh_download",
                                         R"(success {"percent":0,"status":"none"})"));
}

TEST_P(DownloadProgress, TellsVersionStepAndPercent) {
  platform.files[kPath] = {{"step", "downloading"}, {"percent", "12"}, {"version", "VXM 1.4-7"}};
  Call(GetParam());
  EXPECT_THAT(
      Lines(),
      fake::ElementsAre("exist /tmp/mesh_download", "exist /tmp/mesh_download",
                        "get /tmp/mesh_download step 8192", "get /tmp/mesh_download percent 8192",
                        "get /tmp/mesh_download version 512",
                        R"(success {"percent":12,"status":"downloading","version":"VXM 1.4-7"})"));
}

TEST_P(DownloadProgress, AnAbsentVersionIsEmptyText) {
  platform.files[kPath] = {{"step", "downloading"}, {"percent", "12"}};
  Call(GetParam());
  EXPECT_THAT(Answers(),
              fake::ElementsAre(R"(success {"percent":12,"status":"downloading","version":""})"));
}

TEST_P(DownloadProgress, AFileWithoutAStepIsNoneAndKeepsItsVersion) {
  platform.files[kPath] = {{"version", "v"}};
  Call(GetParam());
  EXPECT_THAT(Answers(),
              fake::ElementsAre(R"(success {"percent":0,"status":"none","version":"v"})"));
}

TEST_P(DownloadProgress, AVersionThatCannotBeReadFails) {
  platform.files[kPath] = {{"step", "downloading"}, {"percent", "12"}};
  platform.results["get /tmp/mesh_download version"] = -1;
  Call(GetParam());
  EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
  EXPECT_THAT(Logs(), fake::ElementsAre("3 Exception: Fail to get download version"));
}

TEST_P(DownloadProgress, ABadFileFails) {
  platform.files[kPath] = {{"step", "downloading"}, {"percent", "101"}};
  Call(GetParam());
  EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
  EXPECT_THAT(Logs(),
              fake::ElementsAre("3 Invaild progress percentage [101] from /tmp/mesh_download",
                                "3 Exception: Invaild progress percentage"));
}

TEST_P(DownloadProgress, MapsEachKindOfException) {
  platform.throwers["exist"] = fake::Throws(WebapiParamException("bad"));
  Call(GetParam());
  platform.throwers["exist"] = fake::Throws(std::runtime_error("worse"));
  Call(GetParam());
  EXPECT_THAT(Answers(), fake::ElementsAre("error 403 null", "error 117 null"));
  EXPECT_THAT(Logs(), fake::ElementsAre("3 Parameter Error: bad", "3 Exception: worse"));
  platform.throwers["exist"] = fake::Throws(fake::NotStandard());
  EXPECT_THROW(Call(GetParam()), fake::NotStandard);
}

TEST_P(DownloadProgress, FailedWithoutNeedBytesIsFailed) {
  platform.files[kPath] = {{"step", "failed"}, {"percent", "0"}};
  Call(GetParam());
  EXPECT_THAT(Answers(),
              fake::ElementsAre(R"(success {"percent":0,"status":"failed","version":""})"));
}

INSTANTIATE_TEST_SUITE_P(Versions, DownloadProgress,
                         ::testing::Values(WebapiUpgradeDownloadProgress,
                                           WebapiUpgradeDownloadProgressV2));

class DownloadSpace : public fake::ModuleTest {
 protected:
  void SetUp() override {
    platform.files[kPath] = {{"step", "failed"}, {"percent", "0"}, {"need_bytes", "123"}};
  }
};

TEST_F(DownloadSpace, Version2NamesTheLackOfSpace) {
  Call(WebapiUpgradeDownloadProgressV2);
  EXPECT_THAT(Lines("get /tmp/mesh_download need_bytes"),
              fake::ElementsAre("get /tmp/mesh_download need_bytes 8192"));
  EXPECT_THAT(
      Answers(),
      fake::ElementsAre(R"(success {"percent":0,"status":"no_enough_free_space","version":""})"));
}

TEST_F(DownloadSpace, Version2GoesByTheLengthAlone) {
  for (const int result : {0, -1}) {
    platform.journal.Clear();
    platform.results["get /tmp/mesh_download need_bytes"] = result;
    Call(WebapiUpgradeDownloadProgressV2);
    EXPECT_THAT(Answers(),
                fake::ElementsAre(R"(success {"percent":0,"status":"failed","version":""})"));
  }
}

TEST_F(DownloadSpace, OneDigitIsANumberToo) {
  platform.files[kPath]["need_bytes"] = "5";
  Call(WebapiUpgradeDownloadProgressV2);
  EXPECT_THAT(
      Answers(),
      fake::ElementsAre(R"(success {"percent":0,"status":"no_enough_free_space","version":""})"));
}

TEST_F(DownloadSpace, Version1NeverNamesIt) {
  Call(WebapiUpgradeDownloadProgress);
  EXPECT_THAT(Lines("get /tmp/mesh_download need_bytes"), fake::IsEmpty());
  EXPECT_THAT(Answers(),
              fake::ElementsAre(R"(success {"percent":0,"status":"failed","version":""})"));
}

TEST_F(DownloadSpace, OtherStepsDoNotAskForIt) {
  platform.files[kPath]["step"] = "downloading";
  Call(WebapiUpgradeDownloadProgressV2);
  EXPECT_THAT(Lines("get /tmp/mesh_download need_bytes"), fake::IsEmpty());
}

class UpdateProgress : public fake::ModuleTest {
 protected:
  void SetUp() override {
    platform.progress.version = "VXM 1.4.0-76010";
    platform.progress.step = "updating_programs";
    platform.progress.percent = 30;
    platform.progress.total_percentage = 55;
    platform.progress.error_number = 4;
    platform.progress.err_desc = "what";
    platform.progress.err_msg = "why";
  }
};

TEST_F(UpdateProgress, Version1HasNoTotal) {
  Call(WebapiUpgradeProgress);
  EXPECT_THAT(Lines(), fake::ElementsAre("client", "progress",
                                         R"(success {"err_desc":"what","err_msg":"why","errno":4,)"
                                         R"("percent":30,"step":"updating_programs",)"
                                         R"("version":"VXM 1.4.0-76010"})"));
}

TEST_F(UpdateProgress, Version2HasTheServicesTotal) {
  Call(WebapiUpgradeProgressV2);
  EXPECT_THAT(Lines(), fake::ElementsAre("client", "progress_v2",
                                         R"(success {"err_desc":"what","err_msg":"why","errno":4,)"
                                         R"("percent":30,"step":"updating_programs",)"
                                         R"("total_percentage":55,"version":"VXM 1.4.0-76010"})"));
}

TEST_F(UpdateProgress, Version1AnswersAFailureOfTheServiceAtOnce) {
  platform.progress.code = 1;
  Call(WebapiUpgradeProgress);
  EXPECT_THAT(Lines(),
              fake::ElementsAre("client", "progress",
                                fake::MatchesRegex("log 3 [0-9]+ Progress from dbus error"),
                                "error 117 null"));
}

TEST_F(UpdateProgress, Version2FallsBackToTheNodeAndLogsAfterwards) {
  platform.progress.code = 1;
  platform.exec_envelope = fake::FromText(
      R"({"success": true, "data": {"version": "v", "step": "preparing", "errno": 1,
          "err_desc": "d", "err_msg": "m", "percent": 9, "total_percentage": 8, "more": 1}})");
  Call(WebapiUpgradeProgressV2);
  const auto lines = Lines();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[2], "call KALO.Core.Upgrade 1 progress null admin");
  EXPECT_THAT(
      lines[3],
      fake::MatchesRegex("log 3 [0-9]+ Progress from dbus error, fallback to KALO.Core.Upgrade"));
  EXPECT_EQ(lines[4],
            R"(success {"err_desc":"d","err_msg":"m","errno":1,"step":"preparing","version":"v"})");
}

TEST_F(UpdateProgress, TheFallbackCopiesOnlyWhatIsThere) {
  platform.progress.code = 1;
  platform.exec_envelope = fake::FromText(R"({"success": true, "data": {"step": "preparing"}})");
  Call(WebapiUpgradeProgressV2);
  EXPECT_THAT(Answers(), fake::ElementsAre(R"(success {"step":"preparing"})"));
}

TEST_F(UpdateProgress, AFallbackWhoseDataIsNoObjectTellsNothing) {
  platform.progress.code = 1;
  platform.exec_envelope = fake::FromText(R"({"success": true, "data": [1]})");
  Call(WebapiUpgradeProgressV2);
  EXPECT_THAT(Answers(), fake::ElementsAre("success {}"));
}

TEST_F(UpdateProgress, AFallbackWithoutDataFails) {
  platform.progress.code = 1;
  for (const char* envelope : {R"({"success": false, "data": {}})", R"({"success": true})", R"([])",
                               "null", R"({"success": "true", "data": {}})"}) {
    platform.journal.Clear();
    platform.exec_envelope =
        std::string(envelope) == "null" ? Json::Value() : fake::FromText(envelope);
    Call(WebapiUpgradeProgressV2);
    EXPECT_THAT(Logs(),
                fake::ElementsAre("3 Progress from dbus error, fallback to KALO.Core.Upgrade",
                                  "3 Upgrade progress fetch failed."))
        << envelope;
    EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null")) << envelope;
  }
}

TEST_F(UpdateProgress, AFallbackWithAMemberOfTheWrongTypeFails) {
  platform.progress.code = 1;
  for (const char* data : {R"({"errno":"x"})", R"({"version":[]})", R"({"err_msg":{}})"}) {
    platform.journal.Clear();
    platform.exec_envelope = fake::FromText(std::string(R"({"success":true,"data":)") + data + "}");
    Call(WebapiUpgradeProgressV2);
    EXPECT_THAT(Logs(),
                fake::ElementsAre("3 Progress from dbus error, fallback to KALO.Core.Upgrade",
                                  ::testing::StartsWith("3 Exception: ")))
        << data;
    EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null")) << data;
  }
}

TEST_F(UpdateProgress, AnExceptionIsNoReasonToFallBack) {
  for (const auto entry : {WebapiUpgradeProgress, WebapiUpgradeProgressV2}) {
    platform.journal.Clear();
    platform.throwers["progress"] = fake::Throws(std::runtime_error("bus gone"));
    Call(entry);
    EXPECT_THAT(Logs(), fake::ElementsAre("3 Exception: bus gone"));
    EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
    EXPECT_THAT(Lines("call"), fake::IsEmpty());
  }
}

TEST_F(UpdateProgress, AParameterExceptionIsAGeneralFailureHere) {
  platform.on_get_client = fake::Throws(WebapiParamException("odd"));
  for (const auto entry : {WebapiUpgradeProgress, WebapiUpgradeProgressV2}) {
    platform.journal.Clear();
    Call(entry);
    EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
  }
}

}  // namespace
}  // namespace KALO::MESH::Webapi
