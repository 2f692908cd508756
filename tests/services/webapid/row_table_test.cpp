#include "services/webapid/row_table.h"

#include <gtest/gtest.h>

namespace kalo::webapid {
namespace {

TEST(RowTable, PathsNameARowInOneWayOnly) {
  const auto name = ParseRowPath("/webapi/KALO.Mesh.Upgrade/2/status");
  ASSERT_TRUE(name);
  EXPECT_EQ(name->api, "KALO.Mesh.Upgrade");
  EXPECT_EQ(name->version, 2);
  EXPECT_EQ(name->method, "status");
  for (const char* path :
       {"", "/", "/webapi/", "/webapi/a/1", "/webapi/a/1/", "/webapi//1/b", "/webapi/a//b",
        "/webapi/a/01/b", "/webapi/a/+1/b", "/webapi/a/0/b", "/webapi/a/1x/b", "/webapi/a/1/b/c",
        "/webapi/a/99999999999/b", "webapi/a/1/b", "/WEBAPI/a/1/b"}) {
    EXPECT_FALSE(ParseRowPath(path)) << path;
  }
}

TEST(RowTable, TheFirstDescriptionOfARowStays) {
  webapi::ModuleDescription module;
  module.recovery = "/r";
  webapi::RowDescription row;
  row.api = "A";
  row.version = 1;
  row.method = "m";
  row.poll = true;
  module.rows = {row};
  RowTable table;
  table.Add(module);
  module.rows[0].poll = false;
  module.recovery.clear();
  table.Add(module);
  ASSERT_NE(table.Find({"A", 1, "m"}), nullptr);
  EXPECT_TRUE(table.Find({"A", 1, "m"})->poll);
  EXPECT_EQ(table.Find({"A", 2, "m"}), nullptr);
  EXPECT_EQ(table.RecoveryPrograms(), std::vector<std::filesystem::path>{"/r"});
}

}  // namespace
}  // namespace kalo::webapid
