#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

class Start : public fake::ModuleTest {
 protected:
  void Download(const std::string& step, const std::string& percent = "0") {
    platform.files["/tmp/mesh_download"] = {{"step", step}, {"percent", percent}};
  }
};

TEST_F(Start, AsksTheServiceThenMarksTheUpgrade) {
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Lines(), fake::ElementsAre("exist /tmp/mesh_download", "client", "start_update",
                                         "set /tmp/mesh_upgrade step=upgrading",
                                         "set /tmp/mesh_upgrade percent=0", "success null"));
}

TEST_F(Start, ARunningDownloadSetsTheCodeButTheLastAnswerWins) {
  Download("downloading", "40");
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Lines("log "), fake::ElementsAre("log 3 96 API Error: Patches are downloading."));
  EXPECT_THAT(Answers(), fake::ElementsAre("error 5209 null", "success null"));
  EXPECT_EQ(Lines("start_update").size(), 1U);
}

TEST_F(Start, WhatComesAfterARunningDownloadIsTheAnswer) {
  Download("downloading", "40");
  platform.start_result = 1;
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Answers(), fake::ElementsAre("error 5209 null", "error 9001 null"));
  platform.journal.Clear();
  platform.on_get_client = fake::Throws(std::runtime_error("no bus"));
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Answers(), fake::ElementsAre("error 5209 null", "error 117 null"));
}

TEST_F(Start, OtherStepsLetItStart) {
  for (const char* step : {"finished", "failed", "canceled", "downloading2", "none", ""}) {
    platform.journal.Clear();
    Download(step);
    Call(WebapiUpgradeStart);
    EXPECT_THAT(Answers(), fake::ElementsAre("success null")) << step;
  }
  platform.journal.Clear();
  platform.files["/tmp/mesh_download"] = {{"version", "v"}};
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Answers(), fake::ElementsAre("success null")) << "no step";
}

TEST_F(Start, ABadProgressFileTakesTheSamePath) {
  Download("downloading", "101");
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Answers(), fake::ElementsAre("error 5209 null", "success null"));
  EXPECT_EQ(Lines("log ").back(), "log 3 96 API Error: Invaild progress percentage");
}

TEST_F(Start, AnyOtherFailureOfTheGuardStops) {
  for (const auto& thrower :
       {fake::Throws(std::runtime_error("odd")), fake::Throws(WebapiParamException("odd"))}) {
    platform.journal.Clear();
    platform.throwers["exist"] = thrower;
    Call(WebapiUpgradeStart);
    EXPECT_THAT(Lines(), fake::ElementsAre("exist /tmp/mesh_download",
                                           "log 3 99 Unknown Exception: odd", "error 117 null"));
  }
}

TEST_F(Start, WithoutABusItStops) {
  platform.on_get_client = fake::Throws(std::runtime_error("no bus"));
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Lines(), fake::ElementsAre("exist /tmp/mesh_download", "client",
                                         "log 3 107 Unknown Exception: no bus", "error 117 null"));
}

TEST_F(Start, ARefusalOfTheServiceLeavesTheFileAlone) {
  platform.start_result = 1;
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Lines("log "),
              fake::ElementsAre("log 3 113 Dbus return false to start system update"));
  EXPECT_THAT(Answers(), fake::ElementsAre("error 9001 null"));
  EXPECT_THAT(Lines("set "), fake::IsEmpty());
}

TEST_F(Start, OnlyTheLow16BitsAreTheCode) {
  platform.start_result = 0x10000;
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Answers(), fake::ElementsAre("success null"));
  platform.journal.Clear();
  platform.start_result = 0x18000;
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Answers(), fake::ElementsAre("error 9001 null"));
}

TEST_F(Start, AProgressFileThatCannotBeWrittenIs5209) {
  for (const int result : {0, -1}) {
    platform.journal.Clear();
    platform.results["set /tmp/mesh_upgrade step"] = result;
    Call(WebapiUpgradeStart);
    EXPECT_THAT(Answers(), fake::ElementsAre("error 5209 null"));
    EXPECT_THAT(Logs(), fake::ElementsAre("3 Failed to set progress step to /tmp/mesh_upgrade",
                                          "3 API Error: Failed to set progress step"));
  }
}

TEST_F(Start, AFailingCallIsAGeneralFailure) {
  platform.throwers["start_update"] = fake::Throws(std::runtime_error("cut"));
  Call(WebapiUpgradeStart);
  EXPECT_THAT(Logs(), fake::ElementsAre("3 Unknown Exception: cut"));
  EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
}

class UpdateNodes : public fake::ModuleTest {
 protected:
  std::string Failure() {
    try {
      handler.GetUpdateNodes();
    } catch (const WebapiException& e) {
      return e.what();
    }
    return "";
  }
};

TEST_F(UpdateNodes, JoinsBothAnswersOfTheService) {
  platform.AddNode(0, "A", 1);
  platform.AddNode(2, "B", 1);
  platform.AddNode(5, "B", 1);
  platform.access_infos.nodes.erase(2);
  const auto nodes = handler.GetUpdateNodes();
  ASSERT_EQ(nodes.size(), 2U);
  EXPECT_EQ(nodes[0].GetNodeID(), 0);
  EXPECT_EQ(nodes[1].GetNodeID(), 5);
  EXPECT_THAT(Lines(), fake::ElementsAre("client", "node_infos", "access_infos"));
}

TEST_F(UpdateNodes, WithoutNodeInfosTheAccessIsNotAsked) {
  platform.node_infos.code = 1;
  EXPECT_EQ(Failure(), "Failed to get node infos");
  EXPECT_THAT(Lines(),
              fake::ElementsAre("client", "node_infos", "log 3 2303 Failed to get node infos"));
}

TEST_F(UpdateNodes, WithoutAccessInfosItFails) {
  platform.access_infos.code = 65535;
  EXPECT_EQ(Failure(), "Failed to get access infos");
  EXPECT_THAT(Lines("log "), fake::ElementsAre("log 3 2309 Failed to get access infos"));
}

class Fork : public fake::ModuleTest {};

TEST_F(Fork, AFailedForkAnswers5200AndNothingElse) {
  platform.fork_result = -5;
  EXPECT_EQ(handler.ForkAndReturnWebapi(Json::Value("data")), -5);
  EXPECT_THAT(Lines(), fake::ElementsAre("fork 0", "error 5200 null"));
}

TEST_F(Fork, TheParentAnswersAndLeavesTheSession) {
  platform.fork_result = 77;
  EXPECT_EQ(handler.ForkAndReturnWebapi(Json::Value("data")), 77);
  EXPECT_THAT(Lines(), fake::ElementsAre("fork 0", R"(success "data")", "setsid"));
}

TEST_F(Fork, TheChildLeavesTheSessionAndAnswersNothing) {
  platform.fork_result = 0;
  EXPECT_EQ(handler.ForkAndReturnWebapi(Json::Value("data")), 0);
  EXPECT_THAT(Lines(), fake::ElementsAre("fork 0", "setsid"));
}

TEST_F(Fork, AReallyForkedChildStandsInTheJournalAndAnswersNothing) {
  const int pid = handler.ForkAndReturnWebapi(Json::Value());
  if (pid == 0) {
    platform.journal.Add("child works");
    _exit(0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(status, 0);
  EXPECT_THAT(Lines("child"), fake::ElementsAre("child works"));
  EXPECT_EQ(Lines("setsid").size(), 2U);
  EXPECT_THAT(Answers(), fake::ElementsAre("success null"));
}

}  // namespace
}  // namespace KALO::MESH::Webapi
