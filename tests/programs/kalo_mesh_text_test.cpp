#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "programs/kalo-mesh/bars.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/mesh_view.h"
#include "programs/kalo-mesh/table.h"
#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Printable, KeepsTextAndReplacesControlCharacters) {
  EXPECT_EQ(Printable("Küche 1"), "Küche 1");
  EXPECT_EQ(Printable("a\x1b[31mb\n\t\x7f"), "a?[31mb???");
  EXPECT_EQ(Printable("a\xC2\x9B"
                      "2Jb"),
            "a?2Jb");
  EXPECT_EQ(Printable("\xC2"), "\xC2");
}

TEST(Fit, CountsCharactersNotBytes) {
  EXPECT_EQ(Fit("Küche", 7), "Küche  ");
  EXPECT_EQ(Fit("Küche", 2), "Kü");
  EXPECT_EQ(Columns("Küche"), 5U);
}

TEST(Bars, FillInProportionAndKeepTheirWidth) {
  const std::string line = DrawBar({"Hall", 50, "reboot"}, 6, 71);
  EXPECT_EQ(Columns(line), 71U);
  EXPECT_THAT(line, HasSubstr("[###############---------------]"));
  EXPECT_THAT(line, HasSubstr(" 50% reboot"));
  EXPECT_THAT(DrawBar({"Hall", 900, ""}, 6, 71), HasSubstr("100%"));
  EXPECT_THAT(DrawBar({"Hall", -5, ""}, 6, 71), HasSubstr("  0%"));
}

TEST(Bars, LinesShowChangesOnlyAndNeverFall) {
  std::ostringstream out;
  BarBoard board(out, false);
  board.Show({{"Hall", 10, "x"}});
  board.Show({{"Hall", 12, "x"}});
  board.Show({{"Hall", 20, "x"}});
  board.Show({{"Hall", 5, "y"}});
  EXPECT_EQ(out.str(), "Hall: 10% x\nHall: 20% x\nHall: 20% y\n");
}

TEST(Bars, ATerminalIsRedrawnInPlace) {
  std::ostringstream out;
  BarBoard board(out, true);
  board.Show({{"A", 1, ""}, {"B", 2, ""}});
  EXPECT_THAT(out.str(), Not(HasSubstr("\033[2A")));
  board.Show({{"A", 3, ""}, {"B", 4, ""}});
  EXPECT_THAT(out.str(), HasSubstr("\033[2A"));
}

TEST(Table, AlignsColumnsAndDisarmsCells) {
  std::ostringstream out;
  PrintTable(out, {"NODE", "NAME"}, {{"0", "Hall"}, {"10", "\x1b[2J"}, {"2"}});
  EXPECT_EQ(out.str(), "NODE  NAME\n0     Hall\n10    ?[2J\n2\n");
}

TEST(Refusals, SaySentenceNumberAndWhatToDo) {
  const Refusal refusal(1002, "Nothing to do\n");
  EXPECT_EQ(refusal.Status(), kRefused);
  EXPECT_THAT(refusal.what(), HasSubstr("Nothing to do? (1002)"));
  EXPECT_THAT(refusal.what(), HasSubstr("\n  Every node"));
}

TEST(MeshViews, TakeOnlyWhatIsOfTheRightKind) {
  Json::Value data(Json::objectValue);
  data["update_running"] = "yes";
  data["nodes"] = Json::Value(Json::arrayValue);
  data["nodes"].append(7);
  data["nodes"][1]["id"] = "3";
  data["nodes"][1]["name"] = 5;
  data["nodes"][1]["online"] = true;
  const MeshView mesh = ReadMesh(data);
  EXPECT_FALSE(mesh.update_running);
  ASSERT_EQ(mesh.nodes.size(), 2U);
  EXPECT_EQ(mesh.nodes[1].id, 0);
  EXPECT_EQ(mesh.nodes[1].name, "");
  EXPECT_TRUE(mesh.nodes[1].online);
  EXPECT_TRUE(ReadMesh(Json::Value(Json::arrayValue)).nodes.empty());
}

}  // namespace
}  // namespace kalo::cli
