#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

constexpr const char* kPath = "/tmp/mesh_upgrade";

class ProgressFiles : public fake::ModuleTest {
 protected:
  void Write(const std::string& step, const std::string& percent) {
    platform.files[kPath] = {{"step", step}, {"percent", percent}};
  }
  void Read() { handler.ProgressFromFile(kPath, step, percent); }
  // @return what the failure says.
  std::string Failure(const std::function<void()>& body) {
    try {
      body();
    } catch (const WebapiException& e) {
      return e.what();
    }
    return "";
  }

  std::string step = "untouched";
  int percent = -7;
};

TEST_F(ProgressFiles, AMissingFileIsNoneAndNothingMoreIsAsked) {
  Read();
  EXPECT_EQ(step, "none");
  EXPECT_EQ(percent, 0);
  EXPECT_THAT(Lines(), fake::ElementsAre("exist /tmp/mesh_upgrade"));
}

TEST_F(ProgressFiles, ReadsStepThenPercentWithBuffersOf8192Bytes) {
  Write("upgrading", "42");
  Read();
  EXPECT_EQ(step, "upgrading");
  EXPECT_EQ(percent, 42);
  EXPECT_THAT(Lines(),
              fake::ElementsAre("exist /tmp/mesh_upgrade", "get /tmp/mesh_upgrade step 8192",
                                "get /tmp/mesh_upgrade percent 8192"));
}

TEST_F(ProgressFiles, AStepMayBeOneLetter) {
  Write("x", "42");
  Read();
  EXPECT_EQ(step, "x");
}

TEST_F(ProgressFiles, AStepThatCannotBeReadIsNone) {
  for (const int result : {0, -1}) {
    Write("upgrading", "42");
    platform.results["get /tmp/mesh_upgrade step"] = result;
    Read();
    EXPECT_EQ(step, "none");
    EXPECT_EQ(percent, 0);
  }
}

TEST_F(ProgressFiles, AMissingPercentFailsAndKeepsTheStep) {
  for (const int result : {0, -1}) {
    platform.journal.Clear();
    Write("downloading", "1");
    platform.results["get /tmp/mesh_upgrade percent"] = result;
    percent = -7;
    EXPECT_EQ(Failure([this] { Read(); }), "Failed to get progress percentage");
    EXPECT_EQ(step, "downloading");
    EXPECT_EQ(percent, 0);
    EXPECT_THAT(Logs(),
                fake::ElementsAre("3 Failed to get progress percentage from /tmp/mesh_upgrade"));
  }
}

TEST_F(ProgressFiles, AcceptsTheLimitsAndTextBehindTheNumber) {
  for (const auto& [text, number] :
       {std::pair{"0", 0}, std::pair{"100", 100}, std::pair{"42abc", 42}, std::pair{"none", 0}}) {
    Write("upgrading", text);
    Read();
    EXPECT_EQ(percent, number) << text;
  }
}

TEST_F(ProgressFiles, ABadPercentFailsAndStaysInTheOutput) {
  for (const auto& [text, number] :
       {std::pair{"101", 101}, std::pair{"-1", -1}, std::pair{"2147483648", -2147483647 - 1}}) {
    platform.journal.Clear();
    Write("upgrading", text);
    EXPECT_EQ(Failure([this] { Read(); }), "Invaild progress percentage");
    EXPECT_EQ(step, "upgrading");
    EXPECT_EQ(percent, number);
    EXPECT_THAT(Logs(), fake::ElementsAre("3 Invaild progress percentage [" +
                                          std::to_string(number) + "] from /tmp/mesh_upgrade"));
  }
}

TEST_F(ProgressFiles, WritesStepThenPercent) {
  handler.ProgressToFile(kPath, "upgrading", 7);
  EXPECT_THAT(Lines(), fake::ElementsAre("set /tmp/mesh_upgrade step=upgrading",
                                         "set /tmp/mesh_upgrade percent=7"));
}

TEST_F(ProgressFiles, RefusesBadParametersAndWritesNothing) {
  const std::string message = "Invalid parameters for writing progress file";
  EXPECT_EQ(Failure([this] { handler.ProgressToFile(kPath, "x", 101); }), message);
  EXPECT_EQ(Failure([this] { handler.ProgressToFile(kPath, "x", -1); }), message);
  EXPECT_EQ(Failure([this] { handler.ProgressToFile(kPath, "", 1); }), message);
  EXPECT_EQ(Failure([this] { handler.ProgressToFile(nullptr, "x", 1); }), message);
  EXPECT_THAT(Logs(), fake::ElementsAre(
                          "3 Invalid parameters: sz_filename [/tmp/mesh_upgrade], step [x], "
                          "percentage [101]",
                          "3 Invalid parameters: sz_filename [/tmp/mesh_upgrade], step [x], "
                          "percentage [-1]",
                          "3 Invalid parameters: sz_filename [/tmp/mesh_upgrade], step [], "
                          "percentage [1]",
                          "3 Invalid parameters: sz_filename [(null)], step [x], percentage [1]"));
  EXPECT_THAT(Lines("set "), fake::IsEmpty());
}

TEST_F(ProgressFiles, AStepNotWrittenFailsBeforeThePercent) {
  for (const int result : {0, -1}) {
    platform.journal.Clear();
    platform.results["set /tmp/mesh_upgrade step"] = result;
    EXPECT_EQ(Failure([this] { handler.ProgressToFile(kPath, "x", 1); }),
              "Failed to set progress step");
    EXPECT_THAT(Logs(), fake::ElementsAre("3 Failed to set progress step to /tmp/mesh_upgrade"));
    EXPECT_EQ(Lines("set ").size(), 1U);
  }
}

TEST_F(ProgressFiles, APercentNotWrittenFails) {
  for (const int result : {0, -1}) {
    platform.journal.Clear();
    platform.results["set /tmp/mesh_upgrade percent"] = result;
    EXPECT_EQ(Failure([this] { handler.ProgressToFile(kPath, "x", 1); }),
              "Failed to set progress percentage");
    EXPECT_THAT(Logs(),
                fake::ElementsAre("3 Failed to set progress percentage to /tmp/mesh_upgrade"));
  }
}

}  // namespace
}  // namespace KALO::MESH::Webapi
