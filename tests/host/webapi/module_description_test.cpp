#include "host/webapi/module_description.h"

#include <gtest/gtest.h>

#include <fstream>

#include "host/webapi/module_error.h"

namespace kalo::webapi {
namespace {

ModuleDescription Parse(const std::string& text) {
  return ParseModuleDescription(text, "/m/a.json");
}

std::string ErrorOf(const std::string& text) {
  try {
    (void)Parse(text);
    return "";
  } catch (const ModuleError& e) {
    return e.what();
  }
}

std::string WithRow(const std::string& row) {
  return R"({"library":"a.so","rows":[)" + row + "]}";
}

TEST(ModuleDescription, TakesEveryMember) {
  const ModuleDescription module =
      Parse(R"({"library":"a.so","recovery":"/r","rows":[{"api":"A","version":2,"method":"m",)"
            R"("allow":["administrators","mesh_node_0","mesh_nodes"],"timeout_s":10,"poll":true,)"
            R"("files":true}]})");
  EXPECT_EQ(module.library, "/m/a.so");
  EXPECT_EQ(module.recovery, "/r");
  ASSERT_EQ(module.rows.size(), 1U);
  EXPECT_EQ(module.rows[0].allow.size(), 3U);
  EXPECT_EQ(module.rows[0].timeout.count(), 10);
  EXPECT_TRUE(module.rows[0].poll);
  EXPECT_TRUE(module.rows[0].files);
}

TEST(ModuleDescription, DefaultsAreTheStrictOnes) {
  const ModuleDescription module =
      Parse(WithRow(R"({"api":"A","version":1,"method":"m","allow":[]})"));
  EXPECT_TRUE(module.rows[0].allow.empty());
  EXPECT_EQ(module.rows[0].timeout.count(), 60);
  EXPECT_FALSE(module.rows[0].poll);
  EXPECT_FALSE(module.rows[0].files);
  EXPECT_TRUE(module.recovery.empty());
}

TEST(ModuleDescription, SaysWhereAndWhatIsWrong) {
  EXPECT_EQ(ErrorOf("{"), "/m/a.json: not well-formed JSON");
  EXPECT_EQ(ErrorOf("{}"), "/m/a.json: \"library\" is missing");
  for (const char* library : {"../a.so", "/a.so", "a", "", "x/a.so"}) {
    EXPECT_EQ(ErrorOf(std::string(R"({"rows":[],"library":")") + library + "\"}"),
              "/m/a.json: \"library\" must be the name of a .so file in the same folder");
  }
  EXPECT_EQ(ErrorOf(WithRow("1")), "/m/a.json: row 1: not a JSON object");
  EXPECT_EQ(ErrorOf(WithRow(R"({"api":"A","version":"1"})")),
            "/m/a.json: row 1: \"version\" must be a number from 1 to 1000");
  EXPECT_EQ(ErrorOf(WithRow(R"({"api":"A","version":1,"method":"m"})")),
            "/m/a.json: row 1: \"allow\" is missing");
  EXPECT_EQ(ErrorOf(WithRow(R"({"api":"A","version":1,"method":"m","allow":["all"]})")),
            "/m/a.json: row 1: \"allow\" holds something else than administrators, mesh_node_0, "
            "mesh_nodes");
  EXPECT_EQ(ErrorOf(WithRow(R"({"api":"A","version":1,"method":"m","allow":[],"polls":true})")),
            "/m/a.json: row 1: \"polls\" is not known here");
}

TEST(ModuleDescription, AFolderGivesTheGoodOnesAndNamesTheBad) {
  const std::filesystem::path folder = "/tmp/modules";
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "b.json") << R"({"library":"b.so","rows":[]})";
  std::ofstream(folder / "a.json") << "no";
  std::ofstream(folder / "c.so") << "";
  const ModuleFolder read = ReadModuleFolder(folder);
  ASSERT_EQ(read.modules.size(), 1U);
  EXPECT_EQ(read.modules[0].library, folder / "b.so");
  EXPECT_EQ(read.errors, std::vector<std::string>{"/tmp/modules/a.json: not well-formed JSON"});
  const ModuleFolder none = ReadModuleFolder("/tmp/none");
  EXPECT_TRUE(none.modules.empty());
  EXPECT_EQ(none.errors, std::vector<std::string>{"/tmp/none: No such file or directory"});
}

}  // namespace
}  // namespace kalo::webapi
